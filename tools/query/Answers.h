#ifndef Answers_h
#define Answers_h

#include "IndexCheck.h"
#include "Queries.h"

#include <vector>

// Answers go to the standard output: for people as a table, for machines as one JSON object.

/// @param iWithDistance  whether the distances mean anything
void PrintParts(
    const PartIndex& iIndex, const std::vector<NearPart>& iParts, bool iWithDistance, bool iJson);

/// Reads the whole index for its figures; prints nothing when it is damaged.
Status PrintStats(const PartIndex& iIndex, bool iJson);

void PrintCheck(const IndexCheckResult& iResult, bool iJson);

#endif
