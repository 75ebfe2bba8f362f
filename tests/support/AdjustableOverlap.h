#ifndef AdjustableOverlap_h
#define AdjustableOverlap_h

#include "ExactOverlap.h"

/// Puts a rule in the place of IDX_Base_GeometryServices::TriangleToBox, which the program defines in the stand-in's
/// stead. Null passes all questions on to the stand-in, and the library may take the operation for the stand-in's.
void SetOverlapRule(OverlapRule rule);

/// Asks the rule on behalf of the reference.
int AskForReference(const Triple& centre, const Triple& half, const Corners& triangle);

/// How many more questions the library has asked than the reference, since the last call.
int TakeQuestions();

/// Rules that no exact test agrees with: by the bounds alone, by chance, and undecided now and then.
extern const OverlapRule kOverlapRules[3];

#endif
