// A file of the host's file system, as the library's streams use it.

#pragma once

#include "NqCore/PublicAPI/INqFile.h"
#include "NqCore/PublicAPI/NqCountedObject.h"
#include "NqCore/PublicAPI/NqString.h"

// Holds one descriptor while it is open. Names are UTF-8 and taken as they stand; relative ones are looked up in the
// folder that is current when they are used.
class TNqHostFile final : public TNqSMPCountedObject, public INqFile
{
public:
    ~TNqHostFile() override;

    NqErr QueryInterface(const NqIID& iid, void** outInterface) override;
    uint32 AddRef() override { return TNqSMPCountedObject::AddRef(); }
    uint32 Release() override { return TNqSMPCountedObject::Release(); }

    // Both close the file first.
    NqErr SetFileName(const TNqString& inPath, int32 inFlag) override;
    NqErr CopyFrom(INqFile& inFile) override;

    NqErr SetPermission(int32 inMode) override;
    // A file that cannot be looked at, for want of permission, counts as there: Open then tells what is wrong.
    boolean Exists() override;
    NqErr GetSize(uint32* outSize) override;
    NqErr GetPosition(uint32* outPosition) override;
    NqErr GetPermission(int32* outMode) override;
    // Fails when anything stands under the name, and leaves it alone.
    NqErr Create() override;
    // Never waits. Refuses folders, pipes, sockets, devices (but for writing only to a character device), and files
    // that positions of 31 bits do not reach the end of.
    NqErr Open() override;
    NqErr Close() override;
    NqErr Read(int8* outData, uint32 inCount, uint32* outDone) override;
    // Writes nothing when the last byte would lie beyond the largest position.
    NqErr Write(const int8* inData, uint32 inCount, uint32* outDone) override;
    // Positions past the end are allowed: a read finds the end there, a write leaves zeros behind.
    NqErr SetPosition(int32 inOffset, TNqiostream::seek_dir inFrom) override;
    NqErr SetSize(uint32 inSize) override;
    // With the separator at its end.
    void GetPathRelativeFolder(TNqString& outFolder) override;
    // Both give an empty text when there is no name or outPath cannot hold it whole.
    void GetFullPath(TNqString& outPath) override;
    // The file system keeps neither: does nothing.
    NqErr SetTypeAndCreator(TNqFileID* inType, int32* inCreator) override;

private:
    bool IsOpen() const { return fDescriptor >= 0; }
    NqErr CheckOpened();
    TNqDynamicString FullPath() const;

    TNqDynamicString fPath;
    int32 fPermission = eRead;
    int fDescriptor = -1;
    uint32 fPosition = 0; // of the next read or write, at most the largest int32
};
