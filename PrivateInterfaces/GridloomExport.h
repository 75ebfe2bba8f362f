#ifndef GridloomExport_h
#define GridloomExport_h

/// Marks what the library exports. All else is hidden.
#define GRIDLOOM_API __attribute__((visibility("default")))

#endif
