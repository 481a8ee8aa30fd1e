// The open options of CKovra::Open and KovraFile_Open, for C and C++.
#pragma once

#if defined(__cplusplus)
enum KovraOpenOption : unsigned long {
#else
enum KovraOpenOption {
#endif
    KOVRA_RESOLVE_ONLY = 0,  // resolve the name, open nothing
    KOVRA_READ = 1,
    KOVRA_READWRITE = 2,     // create when missing, keep contents unless KOVRA_TRUNCATE
    KOVRA_APPEND = 4,        // read/write, create when missing, every Write goes to the end
    KOVRA_TRUNCATE = 8,      // with KOVRA_READWRITE: empty an existing file
    KOVRA_DENY_WRITE = 16,
    KOVRA_EXCLUSIVE = 32,
    KOVRA_TEXT = 64          // CR LF in the file, LF in memory
};
