// The recursive directory maker.
#pragma once

// Creates the directory path (without a file name, with or without a trailing
// backslash) and its missing parents, from the root down. Returns 0 for an existing
// directory given with a trailing backslash, -1 for a missing drive root given as
// three characters ("Q:\"), and 1 for everything else, a failed creation included.
int MkDirTree(const char* path);

// Whether a file may exist under path: false only when the existence test says that
// nothing is there or that the path can't name a file (invalid characters, a missing
// directory). A test that fails for another reason (access refused, a network error, no
// memory) proves nothing, so a file that must be removed is then removed all the same.
bool MayExist(const char* path);

// MkDirTree on the part of path before its last backslash: the directory that holds
// the file path names. 0, and nothing is created, when path holds no backslash.
int MkDirTreeOfParent(const char* path);
