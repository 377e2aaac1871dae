// The files of a model in memory, as assimp writes and reads them.

#pragma once

#include "Tools/nqtoken/ModelFiles.h"

#include <assimp/IOStream.hpp>
#include <assimp/IOSystem.hpp>

namespace nqtoken
{

class MemoryFiles : public Assimp::IOSystem
{
public:
    explicit MemoryFiles(ModelFiles& ioFiles) : fFiles(ioFiles) {}

    bool Exists(const char* inPath) const override { return fFiles.count(inPath) > 0; }
    char getOsSeparator() const override { return '/'; }
    // To read what is there, or to write a file anew.
    Assimp::IOStream* Open(const char* inPath, const char* inMode) override;
    void Close(Assimp::IOStream* inFile) override { delete inFile; }

private:
    ModelFiles& fFiles;
};

} // namespace nqtoken
