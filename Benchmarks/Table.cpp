#include "Benchmarks/Table.h"
#include "Benchmarks/Scene.h"

#include <benchmark/benchmark.h>
#include <rapidjson/prettywriter.h>
#include <rapidjson/stringbuffer.h>

#include <algorithm>
#include <cstdio>
#include <vector>

namespace NqBench
{

namespace
{

enum EUnit
{
    kMegabytes,    // a second: of the library's text or of the bytes it is made of, for every contender
    kMilliseconds, // for the whole task
    kNanoseconds   // for each of its operations
};

// What one thread does is measured by the processor time it takes, what several do by the clock on the wall.
enum EClock
{
    kProcessor,
    kWall
};

struct TRow
{
    const char* fTask;
    double fAim; // 0: none
    EUnit fUnit;
    EClock fClock;
    const char* fOurs;
    std::vector<const char*> fPeers;
    std::vector<const char*> fAlso = {}; // shown, but not what the aim is about
};

const std::vector<TRow>& Rows()
{
    static const std::vector<TRow> sRows = {
        {"read meshes",
         1.5,
         kMegabytes,
         kProcessor,
         "NqCore",
         {"simdjson on-demand", "RapidJSON SAX", "pugixml, std::from_chars"},
         {"simdjson, for this processor"}},
        {"read meshes from a file", 0.95, kMegabytes, kProcessor, "NqCore", {"NqCore, in memory"}},
        {"read real arrays", 1.5, kMegabytes, kProcessor, "NqCore", {"std::from_chars"}},
        {"read integer arrays", 1, kMegabytes, kProcessor, "NqCore", {"std::from_chars"}},
        {"skip scenes",
         3,
         kMegabytes,
         kProcessor,
         "NqCore",
         {"RapidJSON SAX"},
         {"simdjson on-demand", "simdjson, for this processor"}},
        {"skip scenes in a file", 2.5, kMegabytes, kProcessor, "NqCore", {"RapidJSON SAX, in memory"}},
        {"write real arrays",
         2,
         kMegabytes,
         kProcessor,
         "NqCore",
         {"std::to_chars"},
         {"fmt", "RapidJSON Writer", "NqCore, a block that grows"}},
        {"write real arrays to a file", 1.8, kMegabytes, kProcessor, "NqCore", {"std::to_chars"}},
        {"write integer arrays",
         1,
         kMegabytes,
         kProcessor,
         "NqCore",
         {"std::to_chars"},
         {"fmt", "RapidJSON Writer", "NqCore, a block that grows"}},
        {"write hexadecimal text", 1, kMegabytes, kProcessor, "NqCore", {"QByteArray::toHex"}},
        {"read hexadecimal text", 1, kMegabytes, kProcessor, "NqCore", {"QByteArray::fromHex"}},
        {"write six-bit text", 1, kMegabytes, kProcessor, "NqCore", {"QByteArray::toBase64"}},
        {"read six-bit text", 1, kMegabytes, kProcessor, "NqCore", {"QByteArray::fromBase64"}},
        {"write small attributes", 1, kMilliseconds, kProcessor, "NqCore", {"RapidJSON Writer", "pugixml"}},
        {"read small attributes",
         1,
         kMilliseconds,
         kProcessor,
         "NqCore",
         {"RapidJSON SAX", "RapidJSON document", "pugixml document"},
         {"simdjson on-demand", "simdjson, for this processor"}},
        {"build short names", 1, kMilliseconds, kProcessor, "TNqString31", {"std::string"}},
        {"replace in a long text", 1, kMilliseconds, kProcessor, "TNqDynamicString", {"std::string"}},
        {"change a long text to capitals", 1, kMilliseconds, kProcessor, "TNqDynamicString", {"QString"}},
        {"UTF-8 to characters",
         1,
         kMilliseconds,
         kProcessor,
         "TNqDynamicString::ToUnicode",
         {"QString::fromUtf8"},
         {"NqCore transcoder, by the byte"}},
        {"characters to UTF-8",
         1,
         kMilliseconds,
         kProcessor,
         "NqCore transcoder, whole text",
         {"QString::toUtf8"},
         {"NqCore transcoder, one by one", "TNqDynamicString::FromUnicode"}},
        {"characters to one byte each",
         0.5,
         kMilliseconds,
         kProcessor,
         "NqCore, Windows-1252, whole text",
         {"QString::toLatin1"},
         {"NqCore, Mac OS Roman, whole text", "NqCore, Windows-1252"}},
        {"append to an array", 0.9, kMilliseconds, kProcessor, "TNqArray", {"std::vector"}},
        {"1000 x lock, alone", 0.7, kNanoseconds, kProcessor, "section array", {"std::mutex"}, {"host section"}},
        {"1000 x safe section, alone", 0.7, kNanoseconds, kProcessor, "safe section", {"std::mutex"}},
        {"1000 x write lock, alone",
         0.7,
         kNanoseconds,
         kProcessor,
         "shared section",
         {"std::shared_mutex"},
         {"tbb::spin_rw_mutex", "shared section array"}},
        {"1000 x read lock, alone",
         0.7,
         kNanoseconds,
         kProcessor,
         "shared section",
         {"std::shared_mutex"},
         {"tbb::spin_rw_mutex", "shared section array"}},
        {"1000 x make an object, alone",
         0.7,
         kNanoseconds,
         kProcessor,
         "SMP counted object",
         {"std::make_shared"},
         {"plain counted object"}},
        {"1000 x thread storage", 0, kNanoseconds, kProcessor, "GetTLS", {"thread_local"}},
        {"for each 100 x 0 ns", 1, kMilliseconds, kWall, "simple", {"tbb simple"}},
        {"for each 1000 x 0 ns", 1, kMilliseconds, kWall, "simple", {"tbb simple"}},
        {"for each 10000 x 0 ns", 1, kMilliseconds, kWall, "simple", {"tbb simple"}},
        {"4K reals to pixels", 1, kMilliseconds, kProcessor, "TNqColorRGBA", {"plain loop"}},
    };
    return sRows;
}

// ---- Measuring -----------------------------------------------------------------------------------------------------------

constexpr int kRepetitions = 3;
constexpr int kAttempts = 5; // at a row whose figures swing
constexpr double kMostSpread = 0.1;

// Keeps the result of one benchmark.
class TLastRun : public benchmark::BenchmarkReporter
{
public:
    bool ReportContext(const Context&) override { return true; }
    void ReportRuns(const std::vector<Run>& inRuns) override
    {
        for (const Run& run : inRuns)
            if (run.run_type == Run::RT_Iteration)
                fRun = run;
    }
    Run fRun;
};

struct TContender
{
    const char* fName;
    enum
    {
        kOurs,
        kPeer,
        kAlso
    } fKind;
    std::vector<double> fSeconds = {}; // for the task, of each repetition
    double fItems = 0;                 // of the task
    double fBytes = 0;

    double Median() const
    {
        std::vector<double> seconds = fSeconds;
        std::sort(seconds.begin(), seconds.end());
        return seconds[seconds.size() / 2];
    }
    double Spread() const
    {
        const auto ends = std::minmax_element(fSeconds.begin(), fSeconds.end());
        return (*ends.second - *ends.first) / Median();
    }
};

// A pattern that fits this benchmark alone, with whatever the benchmark library puts behind its name.
std::string PatternOf(const std::string& inName)
{
    std::string pattern = "^";
    for (const char c : inName)
    {
        if (std::string("().+*?[]{}|^$\\").find(c) != std::string::npos)
            pattern += '\\';
        pattern += c;
    }
    return pattern + "(/.*)?$";
}

bool Measure(const TRow& inRow, TContender& ioContender)
{
    const std::string name = std::string(inRow.fTask) + "/" + ioContender.fName;
    TLastRun last;
    const size_t count = benchmark::RunSpecifiedBenchmarks(&last, PatternOf(name));
    if (count != 1 || last.fRun.error_occurred)
    {
        std::fprintf(stderr, "nqbench: %s: %s\n", name.c_str(),
                     count != 1 ? "is not one benchmark" : last.fRun.error_message.c_str());
        return false;
    }
    const TLastRun::Run& run = last.fRun;
    const double wall = run.real_accumulated_time / static_cast<double>(run.iterations);
    ioContender.fSeconds.push_back(
        inRow.fClock == kWall ? wall : run.cpu_accumulated_time / static_cast<double>(run.iterations));
    const auto rate = run.counters.find("items_per_second"); // by the clock on the wall
    ioContender.fItems = rate == run.counters.end() ? 1 : rate->second.value * wall;
    ioContender.fBytes = run.report_label.empty() ? 0 : std::stod(run.report_label);
    return true;
}

struct TResult
{
    const TRow* fRow;
    std::vector<TContender> fContenders; // the library first
    int fAttempts = 0;

    // The largest spread of those that the aim is about.
    double Spread() const
    {
        double spread = 0;
        for (const TContender& contender : fContenders)
            if (contender.fKind != TContender::kAlso)
                spread = std::max(spread, contender.Spread());
        return spread;
    }
    const TContender& QuickestPeer() const
    {
        const TContender* quickest = nullptr;
        for (const TContender& contender : fContenders)
            if (contender.fKind == TContender::kPeer &&
                (quickest == nullptr || contender.Median() < quickest->Median()))
                quickest = &contender;
        return *quickest;
    }
    double Ratio() const { return QuickestPeer().Median() / fContenders[0].Median(); }
    const char* Verdict() const { return fRow->fAim == 0 ? "-" : Ratio() >= fRow->fAim ? "met" : "missed"; }
    // What the table shows for a contender.
    double Figure(const TContender& inContender) const
    {
        switch (fRow->fUnit)
        {
        case kMegabytes:
            return fContenders[0].fBytes / inContender.Median() / 1e6;
        case kMilliseconds:
            return inContender.Median() * 1e3;
        default:
            return inContender.Median() * 1e9 / inContender.fItems;
        }
    }
};

bool MeasureOnce(const TRow& inRow, TResult& outResult)
{
    outResult = {&inRow, {{inRow.fOurs, TContender::kOurs}}};
    for (const char* peer : inRow.fPeers)
        outResult.fContenders.push_back({peer, TContender::kPeer});
    for (const char* other : inRow.fAlso)
        outResult.fContenders.push_back({other, TContender::kAlso});
    for (int repetition = 0; repetition < kRepetitions; ++repetition)
        for (TContender& contender : outResult.fContenders)
            if (!Measure(inRow, contender))
                return false;
    return true;
}

// Runs the row again while its figures swing, and takes the attempt in which they swing least.
bool MeasureRow(const TRow& inRow, TResult& outResult)
{
    for (int attempt = 1; attempt <= kAttempts; ++attempt)
    {
        TResult result;
        if (!MeasureOnce(inRow, result))
            return false;
        if (attempt == 1 || result.Spread() < outResult.Spread())
            outResult = result;
        outResult.fAttempts = attempt;
        if (outResult.Spread() <= kMostSpread)
            break;
    }
    return true;
}

// ---- Telling -------------------------------------------------------------------------------------------------------------

const char* UnitName(EUnit inUnit)
{
    return inUnit == kMegabytes ? "MB/s" : inUnit == kMilliseconds ? "ms" : "ns";
}

void Print(const TResult& inResult)
{
    const TRow& row = *inResult.fRow;
    std::printf("%-31s %s %.2f times the quickest peer, aim %.2f: %s\n", row.fTask, UnitName(row.fUnit),
                inResult.Ratio(), row.fAim, inResult.Verdict());
    for (const TContender& contender : inResult.fContenders)
        std::printf("    %-36s %10.3f  +-%4.1f %%%s\n", contender.fName, inResult.Figure(contender),
                    contender.Spread() * 50, contender.fKind == TContender::kAlso ? "  (beside the aim)" : "");
    std::fflush(stdout);
}

using TJson = rapidjson::PrettyWriter<rapidjson::StringBuffer>;

void PutText(TJson& ioJson, const char* inName, const char* inText)
{
    ioJson.Key(inName);
    ioJson.String(inText);
}
void PutNumber(TJson& ioJson, const char* inName, double inValue)
{
    ioJson.Key(inName);
    ioJson.Double(inValue);
}

void Put(TJson& ioJson, const TResult& inResult)
{
    static const char* const kKinds[] = {"ours", "peer", "also"};
    const TRow& row = *inResult.fRow;
    ioJson.StartObject();
    PutText(ioJson, "task", row.fTask);
    PutText(ioJson, "unit", UnitName(row.fUnit));
    PutText(ioJson, "clock", row.fClock == kWall ? "wall" : "processor");
    PutNumber(ioJson, "aim", row.fAim);
    PutNumber(ioJson, "ratio", inResult.Ratio());
    PutText(ioJson, "against", inResult.QuickestPeer().fName);
    PutText(ioJson, "verdict", inResult.Verdict());
    PutNumber(ioJson, "attempts", inResult.fAttempts);
    ioJson.Key("contenders");
    ioJson.StartArray();
    for (const TContender& contender : inResult.fContenders)
    {
        ioJson.StartObject();
        PutText(ioJson, "name", contender.fName);
        PutText(ioJson, "kind", kKinds[contender.fKind]);
        PutNumber(ioJson, "figure", inResult.Figure(contender));
        PutNumber(ioJson, "spread", contender.Spread());
        ioJson.Key("seconds");
        ioJson.StartArray();
        for (const double seconds : contender.fSeconds)
            ioJson.Double(seconds);
        ioJson.EndArray();
        ioJson.EndObject();
    }
    ioJson.EndArray();
    ioJson.EndObject();
}

bool WriteFile(const std::string& inFile, const char* inText, size_t inSize)
{
    std::FILE* const file = std::fopen(inFile.c_str(), "wb");
    const bool isWritten = file != nullptr && std::fwrite(inText, 1, inSize, file) == inSize;
    const bool isWhole = file != nullptr && std::fclose(file) == 0 && isWritten;
    if (!isWhole)
        std::perror(inFile.c_str());
    return isWhole;
}

} // namespace

void PrintRows()
{
    for (const TRow& row : Rows())
        std::printf("%s\n", row.fTask);
}

bool RunRow(const std::string& inTask, const std::string& inFile)
{
    const std::vector<TRow>& rows = Rows();
    const auto row = std::find_if(rows.begin(), rows.end(), [&](const TRow& inRow) { return inRow.fTask == inTask; });
    if (row == rows.end())
    {
        std::fprintf(stderr, "nqbench: there is no row \"%s\"\n", inTask.c_str());
        return false;
    }
    TResult result;
    if (!MeasureRow(*row, result))
        return false;
    Print(result);
    rapidjson::StringBuffer text;
    TJson json(text);
    Put(json, result);
    return WriteFile(inFile, text.GetString(), text.GetSize());
}

bool DescribeScene(const std::string& inFile)
{
    rapidjson::StringBuffer text;
    TJson json(text);
    json.StartObject();
    PutNumber(json, "bytes", static_cast<double>(Scene().fTokens.size()));
    PutNumber(json, "json bytes", static_cast<double>(Scene().fJson.size()));
    PutNumber(json, "xml bytes", static_cast<double>(Scene().fXml.size()));
    PutNumber(json, "scenes", static_cast<double>(Scene().fScenes));
    PutNumber(json, "meshes", static_cast<double>(Scene().fMeshes));
    PutNumber(json, "values", static_cast<double>(Scene().fSums.Count()));
    json.EndObject();
    return WriteFile(inFile, text.GetString(), text.GetSize());
}

} // namespace NqBench
