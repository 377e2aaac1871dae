// What the quick starts of the public headers use without declaring it, header by header.

#pragma once

template <class... T>
void Use(const T&...);

#if defined(QUICK_START_OF_BitArray)
extern unsigned int faceCount;
extern TBitArray selectedElsewhere;

#elif defined(QUICK_START_OF_INqFile)
#include "NqCore/PublicAPI/NqHostServices.h"
#include "NqCore/PublicAPI/NqSafeGUID.h"

#elif defined(QUICK_START_OF_ISMPJob)
#include "NqCore/PublicAPI/NqSMPParallel.h"

#include <vector>
class TTexture
{
};
void Bake(TTexture& ioTexture);
extern std::vector<TTexture> textures;
class TScratch
{
};
extern int32 count;
void Process(const TRange& inRange, TScratch& ioScratch);
int64 SumOf(const TRange& inRange);
extern int32 facesPerMesh, meshCount;
void body(const TRange& inRange);
class TMesh
{
public:
    bool HasTree() const;
    void BuildTree();
};
extern TMesh mesh;
extern TSMPSingleSection section;

#elif defined(QUICK_START_OF_ITranscoder)
extern const uint16* characters;
extern uint32 count;
extern TNqArray<uint8> outBytes;

#elif defined(QUICK_START_OF_NqAsciiTranslationTable)
#include "NqCore/PublicAPI/NqString.h"
#include "NqHost/PublicAPI/NqHost.h"
extern uint8* resource;
extern int32 resourceSize;
extern TNqHost host;
extern TNqString255 text;

#elif defined(QUICK_START_OF_NqClassArray)
#include "NqCore/PublicAPI/NqString.h"
extern TNqClassArray<TNqString63> names;

#elif defined(QUICK_START_OF_NqColorRGB)
#include "NqCore/PublicAPI/NqColorRGBA.h"

#elif defined(QUICK_START_OF_NqColorRGBA)
extern TNqColorRGBA8* pixels;
extern uint32 count;

#elif defined(QUICK_START_OF_NqColorRGBAIndex)
extern TNqColorRGBAIndex dark, bright;

#elif defined(QUICK_START_OF_NqCommandBinding)
constexpr int32 kQuitCommand = 1;
void TellThatTheKeyIsTaken(const TNqCommandBinding& inBy);

#elif defined(QUICK_START_OF_NqCompObj)
#include "NqCore/PublicAPI/NqCountedPtr.h"
extern INqUnknown* object;

#elif defined(QUICK_START_OF_NqCompiler)
#include "NqCore/PublicAPI/NqArray.h"
#include "NqCore/PublicAPI/NqColorRGB.h"
class TPalette
{
public:
    void SetColor(uint32 index, const TNqColorRGB& color);

private:
    TNqArray<TNqColorRGB> fColors;
};

#elif defined(QUICK_START_OF_NqCountedObject) || defined(QUICK_START_OF_NqCountedPtr) || \
    defined(QUICK_START_OF_NqCountedPtrHelper)
#include "NqCore/PublicAPI/NqCountedObject.h"
#include "NqCore/PublicAPI/NqCountedPtr.h"
#include "NqCore/PublicAPI/NqCountedPtrHelper.h"
class IMyService : public INqUnknown
{
public:
    virtual int32 Answer() = 0;

protected:
    ~IMyService() = default;
};
extern const NqIID IID_IMyService;
#if !defined(QUICK_START_OF_NqCountedObject)
class TMyService : public TNqCountedObject, public IMyService
{
public:
    static void Create(IMyService** outObject);
    NqErr QueryInterface(const NqIID& iid, void** outInterface) override;
    uint32 AddRef() override;
    uint32 Release() override;
    int32 Answer() override;
};
#endif

#elif defined(QUICK_START_OF_NqDateTime)
#include "NqCore/PublicAPI/NqString.h"

#elif defined(QUICK_START_OF_NqEvent)
#include "NqCore/PublicAPI/NqCommandBinding.h"
extern TNqCommandBinding* quit;
void Quit();

#elif defined(QUICK_START_OF_NqException)
#include "NqCore/PublicAPI/NqToken.h"
extern TNqiostream& stream;

#elif defined(QUICK_START_OF_NqExtensibleArray)
struct TNqSlot
{
    int32 fValue;
};

#elif defined(QUICK_START_OF_NqFileType)
#include "NqCore/PublicAPI/NqFileTypeUtils.h"
#include "NqCore/PublicAPI/NqResource.h"
#include "NqCore/PublicAPI/NqResourceStream.h"
extern TNqResource& resource;
extern TNqString255 path;
void ImportModel(const TNqString& inPath);

#elif defined(QUICK_START_OF_NqFileTypeUtils)
#include "NqCore/PublicAPI/NqResourceStream.h"
extern TNqResourceStream& stream;

#elif defined(QUICK_START_OF_NqHost)
#include "NqCore/PublicAPI/NqString.h"

#elif defined(QUICK_START_OF_NqHostAtomicFile)
#include <cstdio>
extern const int8* bytes;
extern uint32 size;

#elif defined(QUICK_START_OF_NqHostFiles)
#include "NqCore/PublicAPI/NqStream.h"

#include <cstdio>
#include <cstring>
extern TNqfstream stream;

#elif defined(QUICK_START_OF_NqHostResourceFile)
#include <cstdio>

#elif defined(QUICK_START_OF_NqHostPathFile)
#include "NqCore/PublicAPI/NqFileTypeUtils.h"

#elif defined(QUICK_START_OF_NqHostSockets)
#include "NqCore/PublicAPI/NqNetStream.h"
bool Fail(const std::string& inError);

#elif defined(QUICK_START_OF_NqHostTemporaryFiles)
#include <cstdio>
#include <cstring>
#include <unistd.h>

#elif defined(QUICK_START_OF_NqNetStream)
extern INqSocket* socket;

#elif defined(QUICK_START_OF_NqPtrArray)
#include "NqCore/PublicAPI/INqFile.h"
class TNqWindow;
extern TNqWindow* window;
extern INqFile* file;

#elif defined(QUICK_START_OF_NqRect)
extern TNqPoint mouse;

#elif defined(QUICK_START_OF_NqResource)
#include "NqCore/PublicAPI/NqResourceStream.h"

#elif defined(QUICK_START_OF_NqResourceFile)
#include "NqCore/PublicAPI/NqResourceStream.h"
extern TNqResourceFile& file;

#elif defined(QUICK_START_OF_NqSMP)
class TCache
{
};
void DeleteCache(void** ioCache);

#elif defined(QUICK_START_OF_NqSMPCriticalSection)
extern TNqCriticalSection* fCS;
extern int32 key;

#elif defined(QUICK_START_OF_NqSMPParallel)
#include <vector>
struct TEdge;
extern std::vector<TEdge*> edges;
extern int32 count;
float Length(const TEdge* inEdge);
int64 AreaOf(const TRange& inRange);

#elif defined(QUICK_START_OF_NqSMPSharedCriticalSection)
class TCache
{
public:
    bool Find(int32 inKey, int32& outValue) const;
    void Add(int32 inKey, int32 inValue);
};
extern TCache cache;
extern int32 key, value;

#elif defined(QUICK_START_OF_NqString)
extern TNqString255 folder, name;
void Draw(const uint16* inText, uint32 inLength);

#elif defined(QUICK_START_OF_NqStringUtils)
#include "NqCore/PublicAPI/NqString.h"

#elif defined(QUICK_START_OF_NqTiming)
void Work();

#elif defined(QUICK_START_OF_NqToken)
#include "NqCore/PublicAPI/NqString.h"
extern TNqiostream& stream;
extern TNqPoint size;
#endif
