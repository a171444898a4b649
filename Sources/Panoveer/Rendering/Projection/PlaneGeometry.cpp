#include "Panoveer/Rendering/Projection/PlaneGeometry.h"

namespace panoveer {

namespace {

// The samples of a stored plane along one axis, before it is turned.
SampleAxis storedAxis(int pictureSize, int planeSize, bool isSitedBetween) {
    if (pictureSize == planeSize)
        return {0.5, 1, planeSize};
    return {isSitedBetween ? 1.0 : 0.5, 2, planeSize};
}

SampleAxis reversed(const SampleAxis& axis, int pictureSize) {
    return {pictureSize - axis.position(axis.count - 1), axis.pitch, axis.count};
}

} // namespace

PlaneGeometry::PlaneGeometry(PictureSize picture, PictureSize plane, SourceVideoOrientation orientation)
    : picture_(picture), plane_(plane), orientation_(orientation) {
    const auto across = storedAxis(picture.width, plane.width, false);
    const auto down = storedAxis(picture.height, plane.height, true);
    columns_ = swapsAxes() ? down : across;
    rows_ = swapsAxes() ? across : down;
    if (reversesColumns())
        columns_ = reversed(columns_, swapsAxes() ? picture.height : picture.width);
    if (reversesRows())
        rows_ = reversed(rows_, swapsAxes() ? picture.width : picture.height);
}

bool PlaneGeometry::reversesColumns() const {
    return orientation_ == SourceVideoOrientation::right || orientation_ == SourceVideoOrientation::down;
}

bool PlaneGeometry::reversesRows() const {
    return orientation_ == SourceVideoOrientation::left || orientation_ == SourceVideoOrientation::down;
}

PlaneGeometry::Position PlaneGeometry::stored(Position upright) const {
    const int column = reversesColumns() ? columns_.count - 1 - upright.x : upright.x;
    const int row = reversesRows() ? rows_.count - 1 - upright.y : upright.y;
    return swapsAxes() ? Position{row, column} : Position{column, row};
}

PlaneGeometry::Position PlaneGeometry::upright(Position stored) const {
    const int column = swapsAxes() ? stored.y : stored.x;
    const int row = swapsAxes() ? stored.x : stored.y;
    return {reversesColumns() ? columns_.count - 1 - column : column, reversesRows() ? rows_.count - 1 - row : row};
}

} // namespace panoveer
