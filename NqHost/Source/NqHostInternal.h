// What the services of the reference host share.

#pragma once

#include "NqHost/PublicAPI/NqHost.h"

// Every allocation of the host goes through here, so that a test can make any of them fail. Null when it does.
void* NqHostAllocate(unsigned long byteCount);
void* NqHostReallocate(void* block, unsigned long byteCount);
void NqHostFree(void* block);

void NqHostFailAllocations(int64 inFirst, int64 inCount);
int64 NqHostCountAllocations();

void NqHostStartMemory();
void NqHostStopMemory();

void NqHostSetReportHandler(TNqHostReportHandler inHandler, void* inContext);
