// Writes a text file by type and name, reads it back and lists the file types: the
// C++ classes and the C inspection entry points of the installed package at work.
#include <cstdio>

#include "kovra/diag.h"
#include "kovra/kovra.h"

int main()
{
    CKovra("REPORTS", "HELLO.TXT", KOVRA_READWRITE | KOVRA_TRUNCATE | KOVRA_TEXT)
        .WriteString("hello from a consumer\n");
    CKovra file("REPORTS", "HELLO.TXT", KOVRA_READ | KOVRA_TEXT);  // the CR before the LF dropped
    char text[64] = "";
    file.Read(text, sizeof text - 1);
    std::printf("real %s\nlength %lu\ntext %stypes", file.GetRealFileName(), file.GetLength(), text);
    FileType_S type;
    for (int index = 0; KovraGetFileType(index, &type); ++index)
        std::printf(" %s:%s", type.name, KovraLocationWord(static_cast<int>(type.location)));
    std::printf("\n");
}
