// The four-character names of the scene layout, in one place for the writer, the reader and the model converters.

#pragma once

#include "NqCore/PublicAPI/NqBasicTypes.h"

#include <iterator>

namespace nqtoken
{

constexpr FourCharT Name(const char (&ioText)[5])
{
    FourCharT token = 0;
    for (int i = 0; i < 4; ++i)
        token = token << 8 | static_cast<uint8>(ioText[i]);
    return token;
}

constexpr int32 kLayoutVersion = 1;

namespace names
{

// The scene and its head.
constexpr FourCharT kScene = Name("SCEN");
constexpr FourCharT kVersion = Name("VERS");
constexpr FourCharT kMadeBy = Name("MADE");
constexpr FourCharT kUnit = Name("UNIT");
constexpr FourCharT kUpAxis = Name("UPAX");
constexpr FourCharT kImageCount = Name("NIMG");
constexpr FourCharT kMaterialCount = Name("NMAT");
constexpr FourCharT kMeshCount = Name("NMSH");
constexpr FourCharT kNodeCount = Name("NNOD");

// Blocks.
constexpr FourCharT kImage = Name("IMAG");
constexpr FourCharT kMaterial = Name("MATL");
constexpr FourCharT kTexture = Name("TXTR");
constexpr FourCharT kMesh = Name("MESH");
constexpr FourCharT kTexCoords = Name("TXCO");
constexpr FourCharT kColours = Name("COLR");
constexpr FourCharT kNode = Name("NODE");

// In several blocks.
constexpr FourCharT kName = Name("NAME");
constexpr FourCharT kValues = Name("VALU");

// Images.
constexpr FourCharT kFormat = Name("FRMT");
constexpr FourCharT kWidth = Name("WDTH");
constexpr FourCharT kHeight = Name("HGHT");
constexpr FourCharT kData = Name("DATA");

// Materials and their textures.
constexpr FourCharT kShading = Name("SHAD");
constexpr FourCharT kAlphaMode = Name("ALPM");
constexpr FourCharT kKind = Name("KIND");
constexpr FourCharT kFile = Name("FILE");
constexpr FourCharT kImageIndex = Name("IMGI");

// Meshes.
constexpr FourCharT kMaterialIndex = Name("MATI");
constexpr FourCharT kVertexCount = Name("NVTX");
constexpr FourCharT kPositions = Name("POSN");
constexpr FourCharT kNormals = Name("NRML");
constexpr FourCharT kTangents = Name("TANG");
constexpr FourCharT kBitangents = Name("BTAN");
constexpr FourCharT kTexCoordSize = Name("DIMS");
constexpr FourCharT kFaceCount = Name("NFAC");
constexpr FourCharT kFaceSize = Name("FSIZ");
constexpr FourCharT kFaceSizes = Name("FSZS");
constexpr FourCharT kCornerCount = Name("NCRN");
constexpr FourCharT kCorners = Name("CRNR");

// Nodes.
constexpr FourCharT kTransform = Name("MTRX");
constexpr FourCharT kNodeMeshes = Name("MSHS");

} // namespace names

// A value that a material or a texture may have: its name in a scene, its key in a model, and how many reals it holds.
struct ValueName
{
    FourCharT fToken;
    const char* fModelKey;
    uint32 fMinCount;
    uint32 fMaxCount;
};

constexpr ValueName kMaterialReals[] = {
    {Name("DIFF"), "$clr.diffuse", 3, 4},
    {Name("AMBI"), "$clr.ambient", 3, 4},
    {Name("SPCL"), "$clr.specular", 3, 4},
    {Name("EMIS"), "$clr.emissive", 3, 4},
    {Name("TRNS"), "$clr.transparent", 3, 4},
    {Name("REFL"), "$clr.reflective", 3, 4},
    {Name("BASE"), "$clr.base", 3, 4},
    {Name("SHEE"), "$clr.sheen.factor", 3, 4},
    {Name("OPAC"), "$mat.opacity", 1, 1},
    {Name("TRFA"), "$mat.transparencyfactor", 1, 1},
    {Name("SHIN"), "$mat.shininess", 1, 1},
    {Name("SHST"), "$mat.shinpercent", 1, 1},
    {Name("RFLV"), "$mat.reflectivity", 1, 1},
    {Name("REFI"), "$mat.refracti", 1, 1},
    {Name("BUMP"), "$mat.bumpscaling", 1, 1},
    {Name("ANIS"), "$mat.anisotropyFactor", 1, 1},
    {Name("METL"), "$mat.metallicFactor", 1, 1},
    {Name("ROUG"), "$mat.roughnessFactor", 1, 1},
    {Name("SPFA"), "$mat.specularFactor", 1, 1},
    {Name("GLOS"), "$mat.glossinessFactor", 1, 1},
    {Name("SHRO"), "$mat.sheen.roughnessFactor", 1, 1},
    {Name("CLCO"), "$mat.clearcoat.factor", 1, 1},
    {Name("CLRO"), "$mat.clearcoat.roughnessFactor", 1, 1},
    {Name("TRMS"), "$mat.transmission.factor", 1, 1},
    {Name("EMIN"), "$mat.emissiveIntensity", 1, 1},
    {Name("ALPC"), "$mat.gltf.alphaCutoff", 1, 1},
};

constexpr ValueName kMaterialIntegers[] = {
    {Name("2SID"), "$mat.twosided", 1, 1},
    {Name("WIRE"), "$mat.wireframe", 1, 1},
    {Name("BLND"), "$mat.blend", 1, 1},
    {Name("ILLU"), "$mat.illum", 1, 1},
};

constexpr ValueName kTextureReals[] = {
    {Name("AMNT"), "$tex.blend", 1, 1},
    {Name("SCAL"), "$tex.scale", 1, 1},
    {Name("STRE"), "$tex.strength", 1, 1},
    {Name("UVTR"), "$tex.uvtrafo", 5, 5},
};

constexpr ValueName kTextureIntegers[] = {
    {Name("UVST"), "$tex.uvwsrc", 1, 1},  {Name("WRPU"), "$tex.mapmodeu", 1, 1}, {Name("WRPV"), "$tex.mapmodev", 1, 1},
    {Name("MAPP"), "$tex.mapping", 1, 1}, {Name("OPER"), "$tex.op", 1, 1},       {Name("FLAG"), "$tex.flags", 1, 1},
};

// What a texture colours; the place in the list is the model's own number less one.
constexpr FourCharT kTextureKinds[] = {
    Name("DIFF"), Name("SPCL"), Name("AMBI"), Name("EMIS"), Name("HEIG"), Name("NRML"), Name("SHIN"),
    Name("OPAC"), Name("DISP"), Name("LITE"), Name("REFL"), Name("BASE"), Name("NCAM"), Name("EMCO"),
    Name("METL"), Name("ROUG"), Name("OCCL"), Name("OTHR"), Name("SHEE"), Name("CLCO"), Name("TRMS"),
};

// How a material answers light, numbered in the same way.
constexpr FourCharT kShadings[] = {
    Name("FLAT"), Name("GOUR"), Name("PHNG"), Name("BLIN"), Name("TOON"), Name("OREN"),
    Name("MINN"), Name("COOK"), Name("NONE"), Name("FRES"), Name("PBR "),
};

// The place of `inToken` in one of the two lists above, from 1; 0 when it is not there.
template <size_t kCount>
constexpr uint32 NumberOf(const FourCharT (&ioList)[kCount], FourCharT inToken)
{
    for (uint32 i = 0; i < kCount; ++i)
    {
        if (ioList[i] == inToken)
            return i + 1;
    }
    return 0;
}

template <size_t kCount>
constexpr const ValueName* FindValueName(const ValueName (&ioList)[kCount], FourCharT inToken)
{
    for (const ValueName& name : ioList)
    {
        if (name.fToken == inToken)
            return &name;
    }
    return nullptr;
}

} // namespace nqtoken
