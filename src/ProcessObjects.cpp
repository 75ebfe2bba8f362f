// The objects that live as long as the process. One translation unit builds them in the order in which
// they stand here, and takes them down in the reverse order.

#include "IdxFile.h"

IdxFile::IdxFileHash IdxFile::HashFiles;
