#pragma once

#include <QString>

// Orders version texts the way a person reads them: runs of decimal digits compare by their
// value, so 1.10 follows 1.9.
class VersionComparison {
public:
    // Negative when a orders before b, zero when they are equivalent, positive after.
    // Walking both texts from the left: where both hold a run of ASCII digits, the runs compare
    // by value (any length, leading zeros ignored, so 1.01 and 1.1 are equivalent); any other
    // characters compare by code point, with no locale and no case folding. When one text ends
    // and all before was equal, it is the smaller (1.2 before 1.2.0).
    static int compare(const QString& a, const QString& b);

    // Whether candidate orders after current.
    static bool isNewer(const QString& candidate, const QString& current);
};
