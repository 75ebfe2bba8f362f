#ifndef StandardOutput_h
#define StandardOutput_h

#include "Status.h"

// The standard output of a tool holds its answers alone.

/// What is printed while an object lives goes nowhere. What was printed before stays.
class StandardOutputSilence {
public:
    StandardOutputSilence();
    StandardOutputSilence(const StandardOutputSilence&) = delete;
    StandardOutputSilence& operator=(const StandardOutputSilence&) = delete;
    ~StandardOutputSilence();

private:
    int _output;  ///< the standard output of before; below 0: it is as it was
};

/// Hands over what was printed. A full disk may show only here.
Status FlushStandardOutput();

#endif
