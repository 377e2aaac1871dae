// Why a file could not be read, and whole files at once, for hosts and tools that have all of a file in memory. For
// anything longer use TNqfstream.
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
//
// A stream over a file of the host has a failure bit and no reason: the system's own is here.
//
//     NqHostForgetFileError();
//     ...                                       // read from a TNqfstream, to its end
//     if (stream.fail())
//         std::fprintf(stderr, "scene.nq: %s\n", std::strerror(NqHostFileError()));

#pragma once

#include "NqCore/PublicAPI/NqException.h"
#include "NqCore/PublicAPI/NqString.h"

// The system's error (errno) of the last call of a host file on this thread that it refused; 0 when none was refused
// since NqHostForgetFileError.
int NqHostFileError();
void NqHostForgetFileError();

// All bytes of a file, in a block that the caller frees with Nqfree; null when there is an error: kNqErrFileNotFound,
// kNqErrOutOfMemory, and kNqErrInvalidData for a file that cannot be read or is longer than 2^31 - 1 bytes. Folders,
// pipes and devices are refused, and not waited for.
NqErr NqHostLoadFile(const char* inPath, int8*& outBytes, uint32& outSize, TNqString& outReason);

// Puts these bytes in place of what the file holds, or makes the file: all of them at once, on the disk; or the file
// stays as it is. NqHostAtomicFile.h says what becomes of links, permissions and temporary files, and is for content
// that comes in pieces.
// Errors: kNqErrFileNotFound for a folder that is missing, kNqErrOutOfMemory, else kNqErrInvalidData.
NqErr NqHostReplaceFile(const char* inPath, const int8* inBytes, uint32 inSize, TNqString& outReason);
