#include "VEXListValIDXWorkingID.h"

#include <algorithm>

int VEXListValIDXWorkingID::Locate(const IDXWorkingID& iID, int iFrom) const {
    for (int i = std::max(iFrom, 1); i <= Size(); ++i) {
        if (((*this)[i] == iID) == IDX_True) return i;
    }
    return 0;
}

int VEXListValIDXWorkingID::RemoveDuplicates() {
    // For each element, its equals after it are removed one by one.
    const int before = Size();
    for (int i = 1; i < Size(); ++i) {
        int next = i + 1;
        while ((next = Locate((*this)[i], next)) != 0) RemovePosition(next);
    }
    return before - Size();
}

void VEXListValIDXWorkingID::RemovePosition(int iPosition) {
    delete &(*this)[iPosition];
    _copies.RemovePosition(iPosition);
}
