// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

#include <algorithm>
#include <cstddef>
#include <iterator>

namespace Lanvoy
{

/** One row of a table of words. */
struct Name {
    int value;
    const char* word;
};

/** The word for @p value in @p names; "unknown" when the table does not list it. */
template<std::size_t N> QString wordFor(const Name (&names)[N], int value)
{
    const auto row = std::find_if(std::begin(names), std::end(names),
                                  [value](const Name& name) { return name.value == value; });
    return row == std::end(names) ? QStringLiteral("unknown") : QString::fromLatin1(row->word);
}

} // namespace Lanvoy
