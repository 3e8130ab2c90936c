#include "update/VersionComparison.h"

#include <QList>

namespace {

bool isDigit(char32_t c) {
    return c >= U'0' && c <= U'9';
}

// Compares two runs of digits by value without converting them to a number, so that runs of
// any length compare correctly: without leading zeros, a longer run is the larger number, and
// runs of equal length order like their digits.
int compareDigitRuns(const QList<uint>& a, qsizetype aBegin, qsizetype aEnd, const QList<uint>& b,
                     qsizetype bBegin, qsizetype bEnd) {
    while (aBegin < aEnd && a[aBegin] == U'0')
        ++aBegin;
    while (bBegin < bEnd && b[bBegin] == U'0')
        ++bBegin;
    const qsizetype aLength = aEnd - aBegin;
    const qsizetype bLength = bEnd - bBegin;
    if (aLength != bLength)
        return aLength < bLength ? -1 : 1;
    for (; aBegin < aEnd; ++aBegin, ++bBegin) {
        if (a[aBegin] != b[bBegin])
            return a[aBegin] < b[bBegin] ? -1 : 1;
    }
    return 0;
}

} // namespace

int VersionComparison::compare(const QString& a, const QString& b) {
    const QList<uint> left = a.toUcs4();
    const QList<uint> right = b.toUcs4();
    qsizetype i = 0;
    qsizetype j = 0;
    while (i < left.size() && j < right.size()) {
        if (isDigit(left[i]) && isDigit(right[j])) {
            qsizetype iEnd = i;
            while (iEnd < left.size() && isDigit(left[iEnd]))
                ++iEnd;
            qsizetype jEnd = j;
            while (jEnd < right.size() && isDigit(right[jEnd]))
                ++jEnd;
            if (const int order = compareDigitRuns(left, i, iEnd, right, j, jEnd); order != 0)
                return order;
            i = iEnd;
            j = jEnd;
            continue;
        }
        if (left[i] != right[j])
            return left[i] < right[j] ? -1 : 1;
        ++i;
        ++j;
    }
    const bool leftEnded = i == left.size();
    const bool rightEnded = j == right.size();
    if (leftEnded == rightEnded)
        return 0;
    return leftEnded ? -1 : 1;
}

bool VersionComparison::isNewer(const QString& candidate, const QString& current) {
    return compare(candidate, current) > 0;
}
