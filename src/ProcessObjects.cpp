// The objects that live as long as the process. C++ constructs the objects of one source file in
// the order of their definitions and destroys them in the reverse order. So all of them are defined
// here. The messages come first and go last, since any other object may use them.

#include "BBDMessage.h"

#include "IDX_WT_Report.h"
#include "IdxFile.h"
#include "PLMIdxDirectoryManager.h"
#include "PLMIdxParameters.h"

BBDMessageElem BBDMessage::_messages[kMaxMessages];

IdxFile::IdxFileHash IdxFile::HashFiles;

IDX_WT_Report IDX_WT_Report::m_Report;

PLMIdxDirectoryManager PLMIdxDirectoryManager::_IndexDirManager;

PLMIdxParameters PLMIdxParameters::theParameters;
