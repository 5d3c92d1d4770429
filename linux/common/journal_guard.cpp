// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "linux/common/journal_guard.h"

#include <cstdio>
#include <cstring>

namespace ombrel {

JournalGuard::JournalGuard() noexcept {
    sqlite3_vfs* const system = sqlite3_vfs_find(nullptr);
    if (system == nullptr) return;
    // Everything but the one question is the system layer's; it finds its own data in this copy.
    static_cast<sqlite3_vfs&>(layer_) = *system;
    (void)std::snprintf(name_.data(), name_.size(), "ombrel-%p", static_cast<void*>(this));
    layer_.zName = name_.data();
    layer_.pNext = nullptr;
    layer_.xAccess = &JournalGuard::access;
    layer_.system = system;
    (void)sqlite3_vfs_register(&layer_, 0);  // whoever opens by its name finds out whether it is there
}

JournalGuard::~JournalGuard() {
    if (layer_.system != nullptr) (void)sqlite3_vfs_unregister(&layer_);  // fails for nobody who was registered
}

void JournalGuard::watch(sqlite3* db) noexcept {
    sqlite3_file* file = nullptr;
    const char* const path = sqlite3_db_filename(db, "main");
    if (path == nullptr || sqlite3_file_control(db, "main", SQLITE_FCNTL_FILE_POINTER, &file) != SQLITE_OK) return;
    layer_.journal = sqlite3_filename_journal(path);
    layer_.file = file;
}

int JournalGuard::access(sqlite3_vfs* vfs, const char* name, int flags, int* result) noexcept {
    const Layer& layer = *static_cast<Layer*>(vfs);
    const int code = layer.system->xAccess(layer.system, name, flags, result);
    if (code != SQLITE_OK || *result == 0 || layer.file == nullptr || layer.journal == nullptr ||
        std::strcmp(name, layer.journal) != 0) {
        return code;
    }
    int moved = 0;
    const auto* const methods = layer.file->pMethods;
    if (methods != nullptr && methods->xFileControl(layer.file, SQLITE_FCNTL_HAS_MOVED, &moved) == SQLITE_OK &&
        moved != 0) {
        *result = 0;
    }
    return code;
}

}  // namespace ombrel
