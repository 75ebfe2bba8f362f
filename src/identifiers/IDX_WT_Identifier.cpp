#include "IDX_WT_Identifier.h"

IDX_WT_Identifier::IDX_WT_Identifier() : m_auxValue(0) {}

IDX_WT_Identifier::IDX_WT_Identifier(const IDX_WT_Identifier& iOther) = default;

IDX_WT_Identifier& IDX_WT_Identifier::operator=(const IDX_WT_Identifier& iOther) = default;

IDX_WT_Identifier::~IDX_WT_Identifier() = default;

void IDX_WT_Identifier::SetData(const unsigned char* iData, unsigned int iSize) {
    m_auxValue = 0;  // the value belonged to the old bytes
    m_byteArray.SetData(iData, iSize);
}

void IDX_WT_Identifier::DumpAsHexa(char*& oText) const {
    m_byteArray.DumpAsHexa(oText);
}

void IDX_WT_Identifier::DumpAsHexa() const {
    m_byteArray.DumpAsHexa();
}

void IDX_WT_Identifier::DumpPrintable() const {
    m_byteArray.DumpPrintable();
}
