// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "linux/common/declared_ports.h"

#include <algorithm>
#include <unordered_map>
#include <unordered_set>

#include "linux/common/bounded_file.h"
#include "linux/common/error_record.h"
#include "linux/common/folder_stream.h"
#include "linux/common/path_parts.h"
#include "linux/common/text_escape.h"
#include "linux/veskcore/settings_line.h"

namespace ombrel {
namespace {

using Keys = std::unordered_map<std::string_view, std::string_view>;

int refuse(SettingsFault& fault, SettingsFault found) {
    fault = std::move(found);
    return -1;
}

/// Bounds what strangers can make of one line.
std::string shown(std::string_view text) {
    constexpr std::size_t kMostShown = 200;
    return escapeForLine(text.substr(0, kMostShown)) + (text.size() > kMostShown ? "..." : "");
}

std::string valueIn(const Keys& keys, std::string_view key) {
    const auto found = keys.find(key);
    return found == keys.end() ? std::string() : std::string(found->second);
}

/// One section, whose keys have all been read.
int takeSection(const std::string& path, std::string_view section, const Keys& keys,
                std::vector<Declaration>& declarations, SettingsFault& fault) {
    const std::string name(section);
    const auto wrong = [&](const char* key, const char* expected) {
        const std::string problem = keys.contains(key) ? std::string("expected ") + expected
                                                       : std::string("is missing, expected ") + expected;
        return refuse(fault, {kErrorInvalidArgument, path, name, key, valueIn(keys, key), problem});
    };
    if (declarations.size() == kMostDeclarations)
        return refuse(fault, {fromErrno(EFBIG),
                              path,
                              name,
                              {},
                              {},
                              "more than " + std::to_string(kMostDeclarations) + " sections in all files"});
    const std::optional<Protocols> protocols = parseProtocols(valueIn(keys, "protocol"));
    if (!protocols) return wrong("protocol", kExpectedProtocols);
    const std::optional<PortRanges> ports = parsePorts(valueIn(keys, "port"));
    if (!ports) return wrong("port", kExpectedPorts);
    declarations.push_back(
        {nameOf(path), name, valueIn(keys, "display_name"), valueIn(keys, "description"), *protocols, *ports});
    return 0;
}

/// The names of the declaration files; an errno when the folder cannot be read.
int fileNames(const std::string& folder, std::vector<std::string>& names) {
    const FolderStream open(::opendir(folder.c_str()));
    if (!open) return errno == ENOENT ? 0 : errno;
    for (;;) {
        errno = 0;
        const dirent* entry = ::readdir(open.get());
        if (entry == nullptr && errno != 0) return errno;
        if (entry == nullptr) break;
        const std::string_view name = entry->d_name;
        if (!name.starts_with('.') && name.ends_with(kDeclarationSuffix)) names.emplace_back(name);
        if (names.size() > kMostDeclarationFiles) return EFBIG;
    }
    std::sort(names.begin(), names.end());
    return 0;
}

SettingsFault unreadable(const std::string& path, int error, const std::string& limit) {
    return {fromErrno(error), path, {}, {}, {}, error == EFBIG ? limit : std::strerror(error)};
}

int readAll(const std::string& folder, std::vector<Declaration>& declarations, SettingsFault& fault) {
    std::vector<std::string> names;
    if (const int error = fileNames(folder, names); error != 0)
        return refuse(fault,
                      unreadable(folder, error, "more than " + std::to_string(kMostDeclarationFiles) + " files"));
    for (const std::string& name : names) {
        const std::string path = folder + "/" + name;
        std::string text;
        const int error = readBounded(path, kMostDeclarationBytes, text);
        if (error == ENOENT) continue;  // removed since
        if (error != 0)
            return refuse(
                fault, unreadable(path, error, "more than " + std::to_string(kMostDeclarationBytes) + " bytes"));
        if (parseDeclarations(text, path, declarations, fault) != 0) return -1;
    }
    return 0;
}

}  // namespace

std::string describe(const SettingsFault& fault) {
    std::string line = shown(fault.path) + ": ";
    if (!fault.section.empty()) line += "section [" + shown(fault.section) + "]: ";
    if (!fault.key.empty()) line += shown(fault.key) + "=\"" + shown(fault.value) + "\": ";
    return line + fault.problem;
}

int parseDeclarations(std::string_view text, const std::string& path, std::vector<Declaration>& declarations,
                      SettingsFault& fault) {
    std::unordered_set<std::string_view> seen;
    std::optional<std::string_view> section;  // none before the first header and in one that was there before
    Keys keys;
    const auto finish = [&] { return section ? takeSection(path, *section, keys, declarations, fault) : 0; };
    for (LineReader reader(text); reader.next();) {
        if (const std::optional<std::string_view> header = parseHeader(reader.text())) {
            if (finish() != 0) return -1;
            keys.clear();
            section = seen.insert(*header).second ? header : std::nullopt;
        } else if (const std::optional<KeyValue> pair = parseKeyValue(reader.text())) {
            keys.emplace(pair->key, pair->value);
        }
    }
    return finish();
}

int readDeclarations(const std::string& folder, std::vector<Declaration>& declarations, SettingsFault& fault) {
    std::vector<Declaration> read;
    if (readAll(folder, read, fault) != 0) return fail(fault.code);
    declarations = std::move(read);
    return 0;
}

}  // namespace ombrel
