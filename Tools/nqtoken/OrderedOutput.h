// What is printed about several files at once, put in the order of the files: byte for byte what is printed when they
// come one after the other. The first file that is not finished prints at once, so a long run shows how far it is; what
// the files behind it print is kept until it is their turn.
//
//     OrderedOutput ordered(output);
//     ...
//     {
//         OrderedOutput::File file(ordered, index);   // on any thread, each index once
//         file.Put("...");
//         file.End();
//     }
//
// Files must be started in their order, each on a thread that goes on with it: one that prints more than can be kept
// waits for those before it.

#pragma once

#include "Tools/nqtoken/Output.h"

#include <condition_variable>
#include <map>
#include <mutex>
#include <vector>

namespace nqtoken
{

class OrderedOutput
{
public:
    explicit OrderedOutput(Output& ioOutput) : fOutput(ioOutput) {}

    // False once a write has failed or a file was left without its end: nothing more is printed.
    bool Good();

    class File : public Output
    {
    public:
        File(OrderedOutput& ioAll, size_t inIndex) : Output(&ioAll.fOutput), fAll(ioAll), fIndex(inIndex) {}
        ~File() override;

        // There is nothing more to come.
        void End();

    private:
        Outcome Write(std::string_view inText) override;
        void WriteError(std::string_view inText) override;

        OrderedOutput& fAll;
        size_t fIndex;
        bool fEnded = false;
    };

private:
    enum Channel
    {
        kOut,
        kError
    };
    struct Piece
    {
        Channel fChannel;
        std::string fText;
    };
    struct Waiting
    {
        std::vector<Piece> fPieces;
        bool fEnded = false;
    };

    bool Put(size_t inIndex, Channel inChannel, std::string_view inText);
    void End(size_t inIndex);
    void GiveUp();
    void Print(Channel inChannel, std::string_view inText);
    void PrintKept(Waiting& ioFile);

    Output& fOutput;
    std::mutex fMutex;
    std::condition_variable fTurn;
    size_t fCurrent = 0; // the file that prints at once
    std::map<size_t, Waiting> fWaiting;
    size_t fKept = 0; // bytes
    bool fGood = true;
};

} // namespace nqtoken
