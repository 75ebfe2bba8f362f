#ifndef AdjustableOverlap_h
#define AdjustableOverlap_h

#include <array>

using Triple = std::array<float, 3>;
using Corners = std::array<Triple, 3>;  ///< of a triangle

/// A rule for which boxes a triangle meets: 1 when it does, 0 when it doesn't, -1 for no decision.
using OverlapRule = int (*)(const Triple& centre, const Triple& half, const Corners& triangle);

/// Rules that no exact test agrees with: by the bounds alone, by chance, and undecided now and then.
extern const OverlapRule kOverlapRules[3];

/// Puts a rule in the place of IDX_Base_GeometryServices::TriangleToBox, which the program defines in the stand-in's
/// stead. Null passes all questions on to the stand-in, and the library may take the operation for the stand-in's.
void SetOverlapRule(OverlapRule rule);

/// Asks the rule, or the stand-in, on behalf of the reference.
int AskForReference(const Triple& centre, const Triple& half, const Corners& triangle);

/// How many more questions the library has asked the rule than the reference, since the last call.
int TakeQuestions();

#endif
