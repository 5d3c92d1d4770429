// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Key/value and sectioned files, string lists and hashes, running programs, the error record.
// Text arguments are NUL-terminated. Statuses are negative on failure unless said otherwise.
// Objects belong to one thread at a time; the error record is kept for each thread.
#pragma once

#include "platform/vesk_export.h"

extern "C" {

struct VLIBSZHASH;

/// A growable list of strings. A caller may overwrite an item with null.
struct VLIBSZLIST {
    int count;
    int capacity;
    char** items;
};

/// An empty string-to-string hash with room for `entries`; null on failure.
VESK_EXPORT VLIBSZHASH* VLIBCSzHashAlloc(int entries);
/// Stores a copy of `value` under `key`, replacing an earlier one.
VESK_EXPORT int VLIBCSzHashSetValue(VLIBSZHASH* hash, const char* key, const char* value);
/// The value of `key`, owned by the hash; null when absent.
VESK_EXPORT const char* VLIBCSzHashGetValue(const VLIBSZHASH* hash, const char* key);
/// Releases the hash; null is allowed.
VESK_EXPORT void VLIBCSzHashFree(VLIBSZHASH* hash);

/// An empty list with room for `capacity` strings; null on failure.
VESK_EXPORT VLIBSZLIST* VLIBCSzListAlloc(int capacity);
/// The string at `index` (from 0), owned by the list; null outside the list.
VESK_EXPORT const char* VLIBCSzListGet(const VLIBSZLIST* list, int index);
/// Appends a copy of `text`. May replace the list object; the old pointer is then dead.
VESK_EXPORT int VLIBCSzListPush(VLIBSZLIST** list, const char* text);
/// Releases the list and its strings; null is allowed.
VESK_EXPORT void VLIBCSzListFree(VLIBSZLIST* list);

/// Nonzero when an entry of any kind (file, folder, socket, ...) stands at `path`.
VESK_EXPORT int VLIBCFileExist(const char* path);
/// Appends the names of the entries of `dir` to `*list`.
/// @param flags     0
/// @param typeMask  0x40 selects sub-folders (real ones; "." and ".." are never delivered)
VESK_EXPORT int VLIBCFileEnumDir(const char* dir, int flags, VLIBSZLIST** list, int typeMask);

/// Reads the value of `key` in a key/value file.
/// @param buffer  `size` + 1 bytes; at most `size` characters and a NUL are stored
/// @return positive when the key was found (also for an empty value); 0 when the file has no such key;
///         negative when the file cannot be read
VESK_EXPORT int VLIBCFileGetKeyValue(const char* path, const char* key, char* buffer, int size, int flags);
/// Merges every pair of `keys` into the file: replaces the line of a key or adds one, keeps all other
/// lines byte for byte. Atomic: readers see the old file or the new one. Safe for two processes at once.
/// @param format  printf format of one line with two %s, the key and the value
VESK_EXPORT int VLIBCFileSetKeys(const char* path, VLIBSZHASH* keys, int flags, const char* format);
/// Reads the keys of `[section]` into `*hash` (allocated when null).
/// @return the number of keys, 0 when the section is absent, negative when the file cannot be read
VESK_EXPORT int VLIBCFileGetSection(const char* path, const char* section, VLIBSZHASH** hash);
/// Adds a section with these keys; fails when it exists already.
VESK_EXPORT int VLIBCFileAddSection(const char* path, const char* section, VLIBSZHASH* keys, const char* format);
/// Replaces section `oldSection` by `newSection` with exactly these keys.
VESK_EXPORT int VLIBCFileSetSection(const char* path, const char* oldSection, const char* newSection,
                                    VLIBSZHASH* keys, const char* format);
/// Removes a section with its keys; fails when it is absent.
VESK_EXPORT int VLIBCFileRemoveSection(const char* path, const char* section);
/// Appends the section names in file order to `*list`.
VESK_EXPORT int VLIBCFileEnumSection(const char* path, VLIBSZLIST** list);
/// Reads one value of one section into `buffer`; `size` counts the terminator.
/// @return 0 when read, anything else when not
VESK_EXPORT int VLIBCFileGetSectionValue(const char* path, const char* section, const char* key, char* buffer,
                                         int size);
/// Sets one value of an existing or new section.
VESK_EXPORT int VLIBCFileSetSectionValue(const char* path, const char* section, const char* key,
                                         const char* value);

/// Runs `prog` with the arguments up to the first null pointer and waits for it.
/// @return 0 when it exited with 0; negative, with `errno` set, when it could not be run, was ended by a
///         signal, or exited non-zero
VESK_EXPORT int VLIBCExec(const char* prog, const char* a1, const char* a2, const char* a3, const char* a4);
/// Replaces the process image by `path`; returns, negative and with `errno` set, only on failure.
VESK_EXPORT int VLIBCExecv(const char* path, char* const argv[], int flags);
/// Forks a child that nobody waits for and that leaves no zombie. Flushes stdio first.
/// @return 0 in the child, nonzero in the parent (negative when the fork failed)
VESK_EXPORT int VLIBCProcForkChildNoWait(void);

/// The calling thread's last error: code, and the source file and line that raised it.
VESK_EXPORT int VLIBCErrGet(void);
VESK_EXPORT const char* VLIBCErrorGetFile(void);
VESK_EXPORT int VLIBCErrorGetLine(void);
/// Records an error of the calling thread. `file` is copied.
VESK_EXPORT void VLIBCErrSetEx(int code, const char* file, int line);

}  // extern "C"
