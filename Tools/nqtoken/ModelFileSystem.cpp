#include "Tools/nqtoken/ModelFileSystem.h"

#include <algorithm>

namespace nqtoken
{
namespace
{

class MemoryFile : public Assimp::IOStream
{
public:
    MemoryFile(std::string& ioBytes, std::set<Assimp::IOStream*>& ioOpen) : fBytes(ioBytes), fOpen(ioOpen)
    {
        fOpen.insert(this);
    }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;
    ~MemoryFile() override { fOpen.erase(this); } // assimp deletes some without closing them

    size_t Read(void* outBytes, size_t inSize, size_t inCount) override
    {
        const size_t left = fBytes.size() - std::min(fPosition, fBytes.size());
        const size_t count = inSize > 0 ? std::min(inCount, left / inSize) : 0;
        if (count > 0)
            memcpy(outBytes, &fBytes[fPosition], count * inSize);
        fPosition += count * inSize;
        return count;
    }
    size_t Write(const void* inBytes, size_t inSize, size_t inCount) override
    {
        const size_t size = inSize * inCount;
        if (fPosition + size > fBytes.size())
            fBytes.resize(fPosition + size);
        if (size > 0)
            memcpy(&fBytes[fPosition], inBytes, size);
        fPosition += size;
        return inCount;
    }
    aiReturn Seek(size_t inOffset, aiOrigin inOrigin) override
    {
        const size_t base = inOrigin == aiOrigin_SET ? 0 : inOrigin == aiOrigin_CUR ? fPosition : fBytes.size();
        fPosition = base + inOffset;
        return aiReturn_SUCCESS;
    }
    size_t Tell() const override { return fPosition; }
    size_t FileSize() const override { return fBytes.size(); }
    void Flush() override {}

private:
    std::string& fBytes;
    std::set<Assimp::IOStream*>& fOpen;
    size_t fPosition = 0;
};

} // namespace

Assimp::IOStream* MemoryFiles::Open(const char* inPath, const char* inMode)
{
    const bool writes = strchr(inMode, 'w') != nullptr;
    if (!writes && !Exists(inPath))
        return nullptr;
    std::string& bytes = fFiles[inPath];
    if (writes)
        bytes.clear();
    return new MemoryFile(bytes, fOpen);
}

MemoryFiles::~MemoryFiles()
{
    while (!fOpen.empty())
        delete *fOpen.begin();
}

} // namespace nqtoken
