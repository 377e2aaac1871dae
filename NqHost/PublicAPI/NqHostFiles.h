// Whole files at once, for hosts and tools that have all of a file in memory. For anything longer use TNqfstream.
//
//     int8* bytes = nullptr;
//     uint32 size = 0;
//     TNqDynamicString reason;
//     if (NqHostLoadFile("settings.nq", bytes, size, reason) != kNqNoErr)
//         std::fprintf(stderr, "settings.nq: %s\n", reason.StrGet());
//     ...
//     Nqfree(bytes);
//
// Failure: `outReason` tells why, in words for the user. Threads: any.

#pragma once

#include "NqCore/PublicAPI/NqException.h"
#include "NqCore/PublicAPI/NqString.h"

// All bytes of a file, in a block that the caller frees with Nqfree; null when there is an error: kNqErrFileNotFound,
// kNqErrOutOfMemory, and kNqErrInvalidData for a file that cannot be read or is longer than 2^31 - 1 bytes.
NqErr NqHostLoadFile(const char* path, int8*& outBytes, uint32& outSize, TNqString& outReason);

// Puts these bytes in place of what the file holds, or makes the file: all of them at once, on the disk, under the
// permissions that the file had, and its owner where the system allows it; or the file stays as it is and nothing is
// left beside it. A symbolic link to a file is followed.
// Errors: kNqErrFileNotFound for a folder that is missing, kNqErrOutOfMemory, else kNqErrInvalidData.
NqErr NqHostReplaceFile(const char* path, const int8* bytes, uint32 size, TNqString& outReason);
