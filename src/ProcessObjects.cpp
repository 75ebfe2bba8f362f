// The objects that live as long as the process. One translation unit builds them in the order in which
// they stand here, and takes them down in the reverse order.

#include "BBDMessage.h"

#include "IDX_WT_Report.h"
#include "IdxFile.h"
#include "PLMIdxDirectoryManager.h"
#include "PLMIdxParameters.h"

BBDMessageElem BBDMessage::_messages[kRoom];

IdxFile::IdxFileHash IdxFile::HashFiles;

IDX_WT_Report IDX_WT_Report::m_Report;

PLMIdxDirectoryManager PLMIdxDirectoryManager::_IndexDirManager;

PLMIdxParameters PLMIdxParameters::theParameters;
