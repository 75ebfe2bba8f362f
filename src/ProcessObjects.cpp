// The objects that live as long as the process. One translation unit builds them in the order in which
// they stand here, and takes them down in the reverse order.

#include "BBDMessage.h"

#include "IdxFile.h"
#include "PLMIdxParameters.h"

BBDMessageElem BBDMessage::_messages[kRoom];

IdxFile::IdxFileHash IdxFile::HashFiles;

PLMIdxParameters PLMIdxParameters::theParameters;
