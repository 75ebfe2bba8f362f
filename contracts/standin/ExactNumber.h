#ifndef ExactNumber_h
#define ExactNumber_h

#include <cmath>
#include <cstdint>

__extension__ typedef unsigned __int128 UInt128;

/// A sum, difference or product of floats without any rounding: an integer with a unit. The unit of
/// a float is the smallest float, 2^-149. The unit of a product of two is 2^-298, of three 2^-447.
/// Add and compare only numbers of the same unit.
///
/// The integer is in two's complement, in 14 limbs of 64 bits, the lowest first. A float is less
/// than 2^277 units. The overlap test needs products of three differences of differences. These
/// stay below 2^850, so that no operation wraps.
class ExactNumber {
public:
    ExactNumber() = default;

    /// @param iValue  finite
    explicit ExactNumber(float iValue) {
        int exponent = 0;
        const float fraction = std::frexp(std::fabs(iValue), &exponent);
        // fraction x 2^24 is an integer, worth 2^(exponent - 24) each, or 2^(exponent + 125) units.
        const auto mantissa = static_cast<std::uint64_t>(std::ldexp(fraction, 24));
        const int shift = exponent + 125;
        if (shift >= 0) {
            PlaceBits(mantissa, static_cast<unsigned int>(shift));
        } else {
            _limbs[0] = mantissa >> static_cast<unsigned int>(-shift);
        }
        if (iValue < 0.0f) *this = ExactNumber() - *this;
    }

    /// Limb by limb with a carry.
    friend ExactNumber operator+(const ExactNumber& iA, const ExactNumber& iB) {
        ExactNumber sum;
        UInt128 carry = 0;
        for (unsigned int i = 0; i < kLimbs; ++i) {
            carry += static_cast<UInt128>(iA._limbs[i]) + iB._limbs[i];
            sum._limbs[i] = static_cast<std::uint64_t>(carry);
            carry >>= 64;
        }
        return sum;
    }

    friend ExactNumber operator-(const ExactNumber& iA, const ExactNumber& iB) {
        ExactNumber difference;
        std::uint64_t borrow = 0;
        for (unsigned int i = 0; i < kLimbs; ++i) {
            const UInt128 step = static_cast<UInt128>(iA._limbs[i]) - iB._limbs[i] - borrow;
            difference._limbs[i] = static_cast<std::uint64_t>(step);
            borrow = static_cast<std::uint64_t>(step >> 64) != 0 ? 1 : 0;
        }
        return difference;
    }

    /// The schoolbook product of all limbs, modulo 2^896. In two's complement that is the product,
    /// whatever the signs are.
    friend ExactNumber operator*(const ExactNumber& iA, const ExactNumber& iB) {
        ExactNumber product;
        for (unsigned int i = 0; i < kLimbs; ++i) {
            UInt128 carry = 0;
            for (unsigned int j = 0; i + j < kLimbs; ++j) {
                carry += static_cast<UInt128>(iA._limbs[i]) * iB._limbs[j];
                carry += product._limbs[i + j];
                product._limbs[i + j] = static_cast<std::uint64_t>(carry);
                carry >>= 64;
            }
        }
        return product;
    }

    bool IsNegative() const { return (_limbs[kLimbs - 1] >> 63) != 0; }

    friend bool operator<(const ExactNumber& iA, const ExactNumber& iB) {
        return (iA - iB).IsNegative();
    }

    ExactNumber Absolute() const { return IsNegative() ? ExactNumber() - *this : *this; }

private:
    static constexpr unsigned int kLimbs = 14;

    /// Sets up to 24 bits from a bit position on, in a number that is 0. They are in one or two
    /// limbs.
    void PlaceBits(std::uint64_t iBits, unsigned int iShift) {
        const UInt128 wide = static_cast<UInt128>(iBits) << (iShift % 64);
        _limbs[iShift / 64] = static_cast<std::uint64_t>(wide);
        _limbs[iShift / 64 + 1] = static_cast<std::uint64_t>(wide >> 64);
    }

    std::uint64_t _limbs[kLimbs] = {};
};

#endif
