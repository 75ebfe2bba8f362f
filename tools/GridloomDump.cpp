// gridloom-dump: prints a file of an index field by field.

#include "DumpOptions.h"
#include "DumpRun.h"

int main(int iCount, char** iArguments) {
    DumpOptions options;
    const auto end = ReadDumpOptions(iCount, iArguments, options);
    return NumberOf(end ? *end : DumpRun(options).Run());
}
