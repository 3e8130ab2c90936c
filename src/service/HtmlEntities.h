#pragma once

#include <QString>

// Replaces the HTML character references found in page titles: seven named and fixed ones,
// in a fixed order, then decimal numeric references. Never fails.
QString decodingHTMLEntities(const QString& text);
