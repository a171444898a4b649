#pragma once

namespace panoveer {

// x' = a x + c y + tx, y' = b x + d y + ty: the transform that a movie track asks a player to apply.
struct AffineTransform {
    double a = 1, b = 0, c = 0, d = 1, tx = 0, ty = 0;

    friend constexpr bool operator==(const AffineTransform&, const AffineTransform&) = default;
};

} // namespace panoveer
