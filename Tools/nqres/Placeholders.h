// The placeholders of texts: what a program puts its values in place of.
//
//     ^0         NqParameterText
//     %d, %2$s   the formats of C
//     %1         the arguments of Qt
//     {0}, {}    fmt
//
// A translation that loses one shows nonsense, and one that changes a format of C may crash the program.

#pragma once

#include <string>
#include <string_view>

namespace nqres
{

// What is wrong with those of a translation: "has no placeholder where the original has %d". Empty when nothing is.
// Width, precision and flags of a format may differ, and formats may be numbered to stand in another order. A text in
// which a % stands for itself is taken for no format: what a translation then has more is not told.
std::string ComparePlaceholders(std::string_view inOriginal, std::string_view inTranslation);

} // namespace nqres
