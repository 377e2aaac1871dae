// What strings borrow from elsewhere: case mapping and Unicode from Qt, order and decimal point from the user's
// language, and what messages and lookups need.
//
//     TNqString255 text("Saved ^0 of ^1");
//     NqParameterText(text, TNqString15("3"), 0);
//     NqParameterText(text, TNqString15("7"), 1);      // "Saved 3 of 7"
//
// Clients without Qt may include this header: the bridges only name QString.
// Threads: NqIsWesternLanguage is called first on the main thread; the rest is as safe as its arguments.

#pragma once

#include "NqCore/PublicAPI/NqBasicTypes.h"

class QString;
class TNqString;
template <typename T>
class TNqPtrArray;

// ---- Qt ----

// Length() units, 0 behind the first NUL. Without memory `q` becomes empty.
void NqStringToQString(const TNqString& s, QString& q);
void QStringToNqString(const QString& q, TNqString& s);

// ---- Case, order, numbers ----

// Unicode case mapping. A fixed string drops characters at its end when the text grows past its capacity.
void NqUpperString(TNqString& s);
void NqLowerString(TNqString& s);

// -1, 0 or 1: the order of the two texts in the user's language, case-sensitive.
int16 NqCompareStrings(const TNqString& a, const TNqString& b);

// The decimal point of the default QLocale: the first character where it has several, '.' where Latin-1 has none.
char NqGetDecimalPt();

// ---- Messages ----

// Replaces "^" and inIndex, wherever it stands, by inSubString. "^1" is also found in "^10". What was inserted is
// searched again together with what is before it, unless inSubString has a '^' itself. A short text is filled in
// without further memory when the parameter is short too; where memory is missing, no placeholder goes without its
// parameter: the text stays as it is, or is lost when it is the one that could not grow.
void NqParameterText(TNqString& inoutString, const TNqString& inSubString, uint32 inIndex);
void NqParameterText(TNqString& inoutString, const TNqString& inSubString);

// Each text in turn for the parameter of its index. A null one is reported ("arg") and skipped.
void NqParameterText(TNqString& inoutString, const TNqPtrArray<TNqString>& inTextStrings);

// ---- Lookup ----

// A small hash of the characters.
uint8 NqGetHashValue8(const TNqString& s);

// ---- The system's multi-byte encoding ----
//
// There is none any more: every character is one byte, and the functions report that they are still called.

boolean NqIsDoubleByteVersion();                      // false
boolean NqIsWesternLanguage();                        // false; reports on the first call
int16 FastCharacterByteType(const char* inCharacter); // 1; reports
int16 NqStrLen(const char* inString);                 // characters, in 16 bits
int16 NqStrCharLen(char inFirstByte);                 // bytes of the character
int16 NqPCharToInt16(const char* inCharacter);        // its code; a single byte is sign-extended

// n characters on from p, but not past the NUL.
const char* NqGetCharNext(const char* p, int n);

// Up to n bytes back from p, but not onto `inStart`; p - n when p is not in the text at `inStart`.
const char* NqGetCharPrev(const char* inStart, const char* p, int n);
