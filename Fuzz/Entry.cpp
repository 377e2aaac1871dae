// One fuzzing program: NQ_FUZZ_TARGET names the function in NqFuzz that it feeds.

#include "Fuzz/FuzzTargets.h"
#include "NqHost/PublicAPI/NqHost.h"

namespace
{

// Malformed input is reported by the thousand.
void Ignore(void*, const char*, unsigned int, const char*) {}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8* data, size_t size)
{
    static TNqHostOptions options;
    options.fReportHandler = Ignore;
    static TNqHost host(options);
    NqFuzz::NQ_FUZZ_TARGET(data, size);
    return 0;
}
