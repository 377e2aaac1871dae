// Decimal texts, rounded by hand.

#pragma once

class TNqString;

// Removes zeros at the end of the decimals, and the separator ('.' or ',') when nothing else follows it. A text without
// a separator stays.
void StripTrailingZeros(TNqString& ioText);

// Adds one unit in the last digit place, carrying over '.' and ','. Any other character is reported ("Unknown
// character!!") and ends the carry, as the start of the text does: a new digit comes before all that was carried over,
// so that .9 becomes 1.0.
void RoundUp(TNqString& ioText);
