// Writes a text file by type and name, reads it back and lists the file types: the
// C++ classes and the C inspection entry points of the installed package at work.
#include <cstdio>

#include "kovra/diag.h"
#include "kovra/kovra.h"

int main()
{
    {
        CKovra file("REPORTS", "HELLO.TXT", KOVRA_READWRITE | KOVRA_TRUNCATE | KOVRA_TEXT);
        if (!file.IsOpen()) {
            char message[512] = "";
            file.GetLastError(nullptr, message, sizeof message - 1);
            std::printf("open failed: %s\n", message);
            return 1;
        }
        file.WriteString("hello from a consumer\n");
    }
    CKovra file("REPORTS", "HELLO.TXT", KOVRA_READ);
    char bytes[64] = "";
    unsigned int count = file.Read(bytes, sizeof bytes - 1);
    std::printf("real %s\n", file.GetRealFileName());
    std::printf("bytes %u:", count);
    for (unsigned int index = 0; index < count; ++index)
        std::printf(" %02x", static_cast<unsigned char>(bytes[index]));
    std::printf("\ntypes");
    FileType_S type;
    for (int index = 0; KovraGetFileType(index, &type); ++index)
        std::printf(" %s:%s", type.name, KovraLocationWord(static_cast<int>(type.location)));
    std::printf("\n");
    return 0;
}
