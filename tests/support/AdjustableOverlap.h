#ifndef AdjustableOverlap_h
#define AdjustableOverlap_h

#include "ExactOverlap.h"

#include <cstdint>

/// Puts a rule in the place of IDX_Base_GeometryServices::TriangleToBox, which the program defines in the stand-in's
/// stead. Null passes all questions on to the stand-in, and the library may take the operation for the stand-in's.
void SetOverlapRule(OverlapRule rule);

/// A number for all questions that the rule was asked, in their order, since the last call.
std::uint64_t TakeQuestions();

/// The same for a rule that is asked in another way.
std::uint64_t WithQuestion(std::uint64_t questions, const Triple& centre, const Triple& half);

/// Rules that no exact test agrees with: by the bounds alone, by chance, and undecided now and then.
extern const OverlapRule kOverlapRules[3];

#endif
