#ifndef RunProgram_h
#define RunProgram_h

#include <benchmark/benchmark.h>
#include <exception>
#include <iostream>

/// Takes the options of Google Benchmark and runs a program. What it throws goes to the standard error, after
/// the program's name.
/// @return  the exit code
inline int RunProgram(const char* iName, void (*iMain)(), int iCount, char** iArguments) {
    try {
        benchmark::Initialize(&iCount, iArguments);
        iMain();
        return 0;
    } catch (const std::exception& failure) {
        std::cerr << iName << ": " << failure.what() << '\n';
        return 1;
    }
}

#endif
