#pragma once

// Where to look for better settings: pure arithmetic, and an optimiser for what is too wide a grid.

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

    bool isRange() const { return values.empty(); }
    // `share` from 0 to 1 of the way through them.
    std::string valueAt(double share) const;
};

// "PROPERTY=A..B" or "PROPERTY=V,V,V". Whether a device takes the values is for Settings to say.
// Throws InputError.
Dimension parseDimension(const std::string& over);

using Choice = std::vector<std::string>;  // a value of each dimension

// Knows how much worse than the base the settings of some choices are. Several are asked for at once
// where that is possible.
class Landscape {
  public:
    virtual ~Landscape() = default;
    virtual std::vector<double> changesOf(const std::vector<Choice>& choices) = 0;
    virtual size_t left() const = 0;  // of the settings that may still be tried
};

// Tries settings until enough are tried. One or two dimensions, and lists of any number that fit, are
// gone through evenly and then more closely around the best; for more, a division of the space that
// goes on where it promises most (NLopt's DIRECT_L), then a simplex from the best (Sbplx).
void search(const std::vector<Dimension>& dimensions, Landscape& landscape);

}  // namespace replay
