#ifndef RedirectingFile_h
#define RedirectingFile_h

#include <type_traits>

// The redirecting file of an index directory says which of its two sub-directories is live. Host
// byte order. docs/file-formats.md, "Index directory".

/// All of the file. 4 bytes.
struct RedirectingFile {
    unsigned int number;  // 0  4  of the live sub-directory, 1 or 2

    bool IsValid() const { return number == 1 || number == 2; }
};

/// The number of the other sub-directory: 2 for 1, and 1 for 2.
constexpr int OtherSubDirectory(int iNumber) {
    return iNumber == 1 ? 2 : 1;
}
static_assert(sizeof(RedirectingFile) == 4, "redirecting file");
static_assert(std::is_trivially_copyable<RedirectingFile>::value, "redirecting file is bytes");

#endif
