// Temporary files that do not stay behind, whatever becomes of the program.
//
//     std::string path;
//     int descriptor = -1;
//     const int error = NqHostMakeTemporaryFile("/tmp", 0600, path, descriptor);
//     if (error != 0)
//         std::fprintf(stderr, "/tmp: %s\n", std::strerror(error));
//     ...
//     close(descriptor);
//     NqHostRemoveTemporaryFile(path);
//
// A program that a signal ends removes its files when the signal's handler calls NqHostRemoveTemporaryFiles. What a
// program leaves that was killed or crashed, or that the power failed under, is removed by the next one of the same
// user and machine that makes a temporary file in that folder. It knows such files by their names,
// .nq-temporary-MACHINE-NUMBER, and by their locks: whoever makes a file holds a lock (flock) of it until its
// descriptor and all copies of that are closed, so a file that can be locked belongs to nobody who lives. Where a file
// system has no locks, nothing is removed.
//
// Threads: any. A process made by fork leaves the files of its parent alone.

#pragma once

#include <string>

// Makes an empty file with a name of its own, open for reading and writing and not passed to programs that are
// started. `inMode` are its permissions, less the mask of the process. 0, or the error of the system (errno).
int NqHostMakeTemporaryFile(const std::string& inFolder, unsigned int inMode, std::string& outPath, int& outDescriptor);

// Removes such a file, open or closed.
void NqHostRemoveTemporaryFile(const std::string& inPath);

// Whether NqHostRemoveTemporaryFiles shall remove a file: from now on one of any origin, or no longer one that was made
// here or added, such as after it has got another name.
void NqHostAddTemporaryFile(const std::string& inPath);
void NqHostKeepTemporaryFile(const std::string& inPath);

// Removes all of them. May be called by a signal's handler, and by nothing else: the program has to end behind it.
// Waits for files that other threads are making just then.
void NqHostRemoveTemporaryFiles();
