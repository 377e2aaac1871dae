#include "Tools/nqtoken/OrderedOutput.h"

namespace nqtoken
{
namespace
{

constexpr size_t kMostKept = 1 << 24;

} // namespace

bool OrderedOutput::Good()
{
    const std::lock_guard<std::mutex> lock(fMutex);
    return fGood;
}

bool OrderedOutput::Put(size_t inIndex, Channel inChannel, std::string_view inText)
{
    std::unique_lock<std::mutex> lock(fMutex);
    fTurn.wait(lock, [&] { return inIndex == fCurrent || fKept + inText.size() <= kMostKept || !fGood; });
    if (fGood && inIndex == fCurrent)
        Print(inChannel, inText);
    else if (fGood)
    {
        std::vector<Piece>& pieces = fWaiting[inIndex].fPieces;
        if (pieces.empty() || pieces.back().fChannel != inChannel)
            pieces.push_back({inChannel, {}});
        pieces.back().fText += inText;
        fKept += inText.size();
    }
    return fGood;
}

// The next files print what they have kept, up to the first one that goes on.
void OrderedOutput::End(size_t inIndex)
{
    const std::lock_guard<std::mutex> lock(fMutex);
    fWaiting[inIndex].fEnded = true;
    for (auto file = fWaiting.find(fCurrent); file != fWaiting.end() && file->second.fEnded;
         file = fWaiting.find(fCurrent))
    {
        fWaiting.erase(file);
        file = fWaiting.find(++fCurrent);
        if (file != fWaiting.end())
            PrintKept(file->second);
    }
    fGood = fGood && fOutput.Flush().Ok();
    fTurn.notify_all();
}

void OrderedOutput::GiveUp()
{
    const std::lock_guard<std::mutex> lock(fMutex);
    fGood = false;
    fTurn.notify_all();
}

void OrderedOutput::Print(Channel inChannel, std::string_view inText)
{
    if (inChannel == kOut)
        fOutput.Put(inText);
    else
        fOutput.PutError(inText);
    fGood = fOutput.Good();
}

void OrderedOutput::PrintKept(Waiting& ioFile)
{
    for (const Piece& piece : ioFile.fPieces)
    {
        fKept -= piece.fText.size();
        if (fGood)
            Print(piece.fChannel, piece.fText);
    }
    ioFile.fPieces.clear();
}

OrderedOutput::File::~File()
{
    if (!fEnded)
        fAll.GiveUp();
}

void OrderedOutput::File::End()
{
    static_cast<void>(Flush());
    fEnded = true;
    fAll.End(fIndex);
}

Outcome OrderedOutput::File::Write(std::string_view inText)
{
    // Why it failed is known to the output that all files share.
    return fAll.Put(fIndex, kOut, inText) ? Outcome() : Trouble("standard output");
}

void OrderedOutput::File::WriteError(std::string_view inText)
{
    fAll.Put(fIndex, kError, inText);
}

} // namespace nqtoken
