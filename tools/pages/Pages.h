#ifndef Pages_h
#define Pages_h

#include "Program.h"

#include <string>

// The parts of pages that are made of the table of a tool. Each ends with a line break.

/// Usage, options and exit codes, for docs/tools.md.
std::string MarkdownOf(const Program& iProgram);

/// Section SYNOPSIS of a man page.
std::string ManSynopsisOf(const Program& iProgram);

/// Sections OPTIONS and EXIT STATUS of a man page.
std::string ManOptionsOf(const Program& iProgram);

/// Completion of the command line in bash.
std::string CompletionOf(const Program& iProgram);

#endif
