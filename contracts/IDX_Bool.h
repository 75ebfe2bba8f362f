#ifndef IDX_Bool_h
#define IDX_Bool_h

/// Truth value of the index system.
enum IDX_Bool { IDX_False = 0, IDX_True = 1 };

#endif
