// The files of a model in memory, as assimp writes and reads them.

#pragma once

#include "Tools/nqtoken/ModelFiles.h"

#include <assimp/IOStream.hpp>
#include <assimp/IOSystem.hpp>

#include <set>

namespace nqtoken
{

class MemoryFiles : public Assimp::IOSystem
{
public:
    explicit MemoryFiles(ModelFiles& ioFiles) : fFiles(ioFiles) {}
    MemoryFiles(const MemoryFiles&) = delete;
    MemoryFiles& operator=(const MemoryFiles&) = delete;
    ~MemoryFiles() override; // closes what a reader that gave up has left open

    bool Exists(const char* inPath) const override { return fFiles.count(inPath) > 0; }
    char getOsSeparator() const override { return '/'; }
    // To read what is there, or to write a file anew.
    Assimp::IOStream* Open(const char* inPath, const char* inMode) override;
    void Close(Assimp::IOStream* inFile) override { delete inFile; }

private:
    ModelFiles& fFiles;
    std::set<Assimp::IOStream*> fOpen;
};

} // namespace nqtoken
