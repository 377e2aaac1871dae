// Readers of exported models that know nothing of who wrote them: for counts that are held against those of the scene.

#pragma once

#include "NqCore/PublicAPI/NqBasicTypes.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <vector>

using TPoint = std::array<double, 3>;

// The faces of a model by their corners, the box around the corners, and which way the faces look.
struct TModelCounts
{
    size_t fVertices = 0; // 0 where the format numbers none
    size_t fPoints = 0;
    size_t fLines = 0;
    size_t fTriangles = 0;
    size_t fPolygons = 0;
    bool fHasBox = false;
    std::array<double, 6> fBox = {INFINITY, INFINITY, INFINITY, -INFINITY, -INFINITY, -INFINITY};
    TPoint fArea = {}; // of all faces, each as the vector on which it stands: how it is cut does not matter
    double fWholeArea = 0;
    std::string fFault; // what is wrong with the file; empty when nothing is

    void AddFace(size_t size, size_t count = 1)
    {
        (size == 1 ? fPoints : size == 2 ? fLines : size == 3 ? fTriangles : fPolygons) += size > 0 ? count : 0;
    }
    void AddArea(const std::vector<TPoint>& corners, double sign = 1)
    {
        TPoint area = {};
        for (size_t i = 2; i < corners.size(); ++i)
        {
            for (size_t axis = 0; axis < 3; ++axis)
            {
                const size_t u = (axis + 1) % 3, v = (axis + 2) % 3;
                const auto side = [&](size_t corner, size_t along)
                { return corners[corner][along] - corners[0][along]; };
                area[axis] += sign * (side(i - 1, u) * side(i, v) - side(i - 1, v) * side(i, u));
            }
        }
        for (size_t axis = 0; axis < 3; ++axis)
            fArea[axis] += area[axis];
        fWholeArea += std::sqrt(area[0] * area[0] + area[1] * area[1] + area[2] * area[2]);
    }
    void AddCorner(const TPoint& position)
    {
        fHasBox = true;
        for (size_t i = 0; i < 3; ++i)
        {
            fBox[i] = std::min(fBox[i], position[i]);
            fBox[i + 3] = std::max(fBox[i + 3], position[i]);
        }
    }
};

inline std::string BytesOfFile(const std::filesystem::path& path)
{
    std::ostringstream bytes;
    bytes << std::ifstream(path, std::ios::binary).rdbuf();
    return bytes.str();
}

// Numbers, the low byte first; zeros behind the end, and a note of it.
class TByteReader
{
public:
    explicit TByteReader(const std::string& bytes, size_t at = 0) : fBytes(bytes), fAt(at) {}

    template <class Value>
    Value Take()
    {
        Value value = {};
        if (fAt + sizeof(Value) <= fBytes.size())
            std::memcpy(&value, &fBytes[fAt], sizeof(Value));
        fAt += sizeof(Value);
        return value;
    }
    double TakeAs(const std::string& type)
    {
        return type == "float"   ? static_cast<double>(Take<float>())
               : type == "uchar" ? Take<uint8>()
               : type == "int"   ? Take<int32>()
                                 : Take<uint32>();
    }
    bool IsPastEnd() const { return fAt > fBytes.size(); }
    bool IsAtEnd() const { return fAt == fBytes.size(); }

private:
    const std::string& fBytes;
    size_t fAt;
};

inline TModelCounts ReadPlyModel(const std::string& path)
{
    TModelCounts counts;
    const std::string bytes = BytesOfFile(path);
    const size_t end = bytes.find("\nend_header\n");
    if (end == bytes.npos || bytes.rfind("ply\nformat binary_little_endian 1.0\n", 0) != 0)
        return counts.fFault = "no header", counts;
    std::istringstream header(bytes.substr(0, end));
    std::vector<std::pair<std::string, std::string>> properties; // of a vertex: types and names
    std::string line, word, countType, indexType, name;
    size_t faces = 0;
    while (std::getline(header, line))
    {
        std::istringstream words(line);
        words >> word;
        if (word == "element")
            words >> name >> (name == "vertex" ? counts.fVertices : faces);
        else if (word == "property" && name == "face")
            words >> word >> countType >> indexType;
        else if (word == "property")
            words >> properties.emplace_back().first >> properties.back().second;
    }
    TByteReader reader(bytes, end + 12);
    std::vector<TPoint> positions;
    for (size_t i = 0; i < counts.fVertices && !reader.IsPastEnd(); ++i)
    {
        positions.emplace_back();
        for (size_t part = 0; part < properties.size(); ++part)
        {
            const double value = reader.TakeAs(properties[part].first);
            if (part < 3)
                positions.back()[part] = value;
        }
    }
    for (size_t i = 0; i < faces && !reader.IsPastEnd(); ++i)
    {
        const auto size = static_cast<size_t>(reader.TakeAs(countType));
        counts.AddFace(size);
        std::vector<TPoint> corners;
        for (size_t corner = 0; corner < size && !reader.IsPastEnd(); ++corner)
        {
            const auto vertex = static_cast<size_t>(reader.TakeAs(indexType));
            if (vertex >= positions.size())
                return counts.fFault = "a corner at vertex " + std::to_string(vertex), counts;
            counts.AddCorner(corners.emplace_back(positions[vertex]));
        }
        counts.AddArea(corners);
    }
    if (!reader.IsAtEnd())
        counts.fFault = "header and body do not fit";
    return counts;
}

inline TModelCounts ReadStlModel(const std::string& path)
{
    TModelCounts counts;
    const std::string bytes = BytesOfFile(path);
    TByteReader reader(bytes, 80);
    counts.fTriangles = reader.Take<uint32>();
    if (bytes.rfind("solid", 0) == 0 || bytes.size() != 84 + counts.fTriangles * 50)
        return counts.fFault = "not as long as its count says", counts;
    for (size_t i = 0; i < counts.fTriangles; ++i)
    {
        std::vector<TPoint> vectors(4); // a normal and three corners
        for (TPoint& vector : vectors)
        {
            for (double& value : vector)
                value = reader.TakeAs("float");
        }
        vectors.erase(vectors.begin());
        for (const TPoint& corner : vectors)
            counts.AddCorner(corner);
        counts.AddArea(vectors);
        reader.Take<uint16>();
    }
    return counts;
}

inline TModelCounts ReadObjModel(const std::string& path)
{
    TModelCounts counts;
    std::set<std::string> materials;
    std::vector<TPoint> positions;
    std::array<size_t, 3> sizes = {}; // of v, vt and vn
    const auto read = [&](const std::string& text, auto&& use)
    {
        std::istringstream lines(text);
        for (std::string line; std::getline(lines, line);)
        {
            for (const char c : line)
            {
                if (static_cast<unsigned char>(c) < ' ' || c == '"' || c == 0x7F)
                    counts.fFault = "a control character or quote in: " + line;
            }
            const size_t blank = line.find(' ');
            use(line.substr(0, blank), blank == line.npos ? "" : line.substr(blank + 1));
        }
    };
    const auto face = [&](const std::string& corners)
    {
        std::istringstream words(corners);
        std::vector<TPoint> points;
        for (std::string word; words >> word;)
        {
            std::istringstream numbers(word);
            std::string number;
            for (size_t i = 0; std::getline(numbers, number, '/'); ++i)
            {
                const size_t index = number.empty() ? 1 : std::stoul(number);
                if (index == 0 || (!number.empty() && index > sizes[i]))
                    counts.fFault = "no such vertex: " + word;
                else if (i == 0)
                    counts.AddCorner(points.emplace_back(positions[index - 1]));
            }
        }
        counts.AddArea(points);
        return points.size();
    };
    read(BytesOfFile(path),
         [&](const std::string& key, const std::string& rest)
         {
             constexpr const char* kLists[] = {"v", "vt", "vn"};
             const auto list = std::find(std::begin(kLists), std::end(kLists), key) - std::begin(kLists);
             std::istringstream words(rest);
             if (list < 3)
                 ++sizes[static_cast<size_t>(list)];
             if (key == "v")
                 words >> positions.emplace_back()[0] >> positions.back()[1] >> positions.back()[2];
             else if (key == "f" || key == "l" || key == "p")
             {
                 const size_t size = face(rest);
                 counts.AddFace(size);
                 if (size < 3 ? key != (size == 1 ? "p" : "l") : key != "f")
                     counts.fFault = "not so many corners: " + key + " " + rest;
             }
             else if (key == "mtllib")
                 read(BytesOfFile(std::filesystem::path(path).replace_filename(rest)),
                      [&](const std::string& word, const std::string& name)
                      {
                          if (word == "newmtl" && !materials.insert(name).second)
                              counts.fFault = "two materials: " + name;
                      });
             else if (key == "usemtl" && materials.count(rest) == 0)
                 counts.fFault = "no such material: " + rest;
             else if (list == 3 && key != "usemtl" && key != "g" && !key.empty())
                 counts.fFault = "no such line: " + key + " " + rest;
         });
    counts.fVertices = sizes[0];
    return counts;
}

// A .gltf with its .bin, or a .glb.
inline TModelCounts ReadGltfModel(const std::string& path)
{
    TModelCounts counts;
    std::string text = BytesOfFile(path);
    size_t binSize = 0;
    if (path.size() > 4 && path.substr(path.size() - 4) == ".glb")
    {
        TByteReader reader(text);
        const bool isRight =
            reader.Take<uint32>() == 0x46546C67 && reader.Take<uint32>() == 2 && reader.Take<uint32>() == text.size();
        const size_t jsonSize = reader.Take<uint32>();
        if (!isRight || jsonSize % 4 != 0 || 20 + jsonSize > text.size())
            return counts.fFault = "not as long as its parts", counts;
        if (text.size() > 20 + jsonSize)
            binSize = TByteReader(text, 20 + jsonSize).Take<uint32>();
        text = text.substr(20, jsonSize);
    }
    const QJsonObject model = QJsonDocument::fromJson(QByteArray::fromStdString(text)).object();
    const auto list = [&](const char* name) { return model[name].toArray(); };
    const auto number = [](const QJsonValue& value) { return static_cast<size_t>(value.toDouble()); };
    if (model.isEmpty())
        return counts.fFault = "not JSON", counts;
    const QJsonObject buffer = list("buffers").at(0).toObject();
    if (buffer.contains("uri"))
        binSize =
            BytesOfFile(std::filesystem::path(path).replace_filename(buffer["uri"].toString().toStdString())).size();
    if (binSize < number(buffer["byteLength"]))
        counts.fFault = "a buffer is too short";
    for (const QJsonValue& view : list("bufferViews"))
    {
        if (number(view["byteOffset"]) + number(view["byteLength"]) > number(buffer["byteLength"]))
            counts.fFault = "a view beyond its buffer";
    }
    for (const QJsonValue& image : list("images"))
    {
        const std::string type = image["mimeType"].toString().toStdString();
        if (image["uri"].isUndefined() && type != "image/png" && type != "image/jpeg")
            counts.fFault = "an image of type " + type;
    }
    const auto addMesh = [&](const QJsonValue& mesh)
    {
        for (const QJsonValue& primitive : mesh["primitives"].toArray())
        {
            const auto accessor = [&](const QJsonValue& index) { return list("accessors").at(index.toInt(-1)); };
            const QJsonValue indices = primitive["indices"];
            const size_t corners =
                number(accessor(indices.isUndefined() ? primitive["attributes"]["POSITION"] : indices)["count"]);
            const int mode = primitive["mode"].toInt(4);
            const size_t size = mode == 0 ? 1 : mode == 1 ? 2 : mode == 4 ? 3 : 0;
            if (size == 0 || corners == 0 || corners % size != 0)
                counts.fFault =
                    "a primitive of mode " + std::to_string(mode) + " and " + std::to_string(corners) + " corners";
            else
                counts.AddFace(size, corners / size);
        }
    };
    for (const QJsonValue& node : list("nodes"))
    {
        if (!node["mesh"].isUndefined())
            addMesh(list("meshes").at(node["mesh"].toInt()));
        for (const QJsonValue& mesh : node["meshes"].toArray())
            addMesh(list("meshes").at(mesh.toInt()));
    }
    return counts;
}

inline TModelCounts ReadModel(const std::string& path)
{
    const std::string ending = path.substr(path.rfind('.'));
    return ending == ".ply"   ? ReadPlyModel(path)
           : ending == ".stl" ? ReadStlModel(path)
           : ending == ".obj" ? ReadObjModel(path)
                              : ReadGltfModel(path);
}
