// The well-known identifiers. Constant-initialised: usable from any constructor that runs at load time.

#pragma once

#include "NqCore/PublicAPI/NqCompObj.h"

extern const NqGUID NqGUID_NULL;

extern const NqIID IID_INqUnknown;
extern const NqIID IID_INqClassFactory;
extern const NqIID IID_INqFile;
extern const NqIID IID_INqLargeFile;
extern const NqIID IID_ITranscoder;
extern const NqIID IID_INqMenuBar;
