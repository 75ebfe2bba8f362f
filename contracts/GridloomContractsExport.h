#ifndef GridloomContractsExport_h
#define GridloomContractsExport_h

/// Marks what the contracts library exports. A program may define such an operation or constant
/// itself, and then both libraries use the program's: this is the seam for small arenas and for
/// tests of failing services.
#define GRIDLOOM_CONTRACTS_API __attribute__((visibility("default")))

#endif
