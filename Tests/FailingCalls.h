// Calls of the system that fail when a test wants it.

#pragma once

#include <cerrno>

// Makes the call with this number, from 1 on, fail with EIO or another error, of those that put a file in place: open,
// write (which moves half of its bytes first, unless it is interrupted), fchmod, fsync, close and rename. Calls before
// and after it work. 0 for none.
void FailCall(int call, int error = EIO);
int CallsMade();
// This process is killed at that call instead, when half of its bytes are written or before it does anything.
void KillAtCall(int call);

// The same for the calls that read, read and pread, on all threads: one call of them, or each that comes to the byte at
// this position of any file, from 0 on; the bytes before it can be read. -1 for none.
void FailRead(int call);
int ReadsMade();
void FailReadAt(long position);
