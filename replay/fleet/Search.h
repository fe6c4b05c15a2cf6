#pragma once

// Where to look for better settings: pure arithmetic, and an optimiser for what is too wide a grid.

#include <functional>
#include <string>
#include <vector>

namespace replay {

// A property and the values it may take: those of a list, or all of a range.
struct Dimension {
    std::string property;
    std::vector<std::string> values;  // empty: a range
    double least = 0;
    double most = 0;
    bool isWhole = false;  // only whole numbers of the range

    // `share` from 0 to 1 of the way through them.
    std::string valueAt(double share) const;
    std::string assignmentAt(double share) const { return property + "=" + valueAt(share); }
    // How many there are; 0 if there are too many to try them all.
    size_t count() const;
};

// "PROPERTY=A..B" or "PROPERTY=V,V,V". Whether a device takes the values is for Settings to say.
// Throws InputError.
Dimension parseDimension(const std::string& over);

using Point = std::vector<double>;  // a share of each dimension

// Knows how much worse than the base the settings at some points are. Several are asked for at once
// where that is possible.
class Landscape {
  public:
    virtual ~Landscape() = default;
    virtual std::vector<double> changesAt(const std::vector<Point>& points) = 0;
    virtual size_t left() const = 0;  // of the settings that may still be tried
};

// Tries settings until enough are tried. One or two dimensions, and lists of any number that fit, are
// gone through evenly and then more closely around the best; for more, a division of the space that
// goes on where it promises most (NLopt's DIRECT_L), then a simplex from the best (Sbplx).
void search(const std::vector<Dimension>& dimensions, Landscape& landscape);

}  // namespace replay
