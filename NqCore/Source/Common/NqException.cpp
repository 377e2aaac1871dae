#include "NqCore/PublicAPI/NqException.h"

#include "NqCore/PublicAPI/NqString.h"

#include <cstddef>

TNqException::TNqException(int inError, const char* inFile, int inLine) : TNqException(inError, nullptr, inFile, inLine)
{
}

TNqException::TNqException(int inError, TNqString* inErrorString, const char* inFile, int inLine)
    : fError(inError),
      fFile(inFile),
      fLine(inLine),
      fErrorString(inErrorString)
{
    NotifyProgramer(inError);
}

TNqException::TNqException(const TNqException& inOther)
    : TNqObject(),
      fError(inOther.fError),
      fFile(inOther.fFile),
      fLine(inOther.fLine),
      fErrorString(inOther.fErrorString)
{
    inOther.fErrorString = nullptr;
}

TNqException& TNqException::operator=(const TNqException& inOther)
{
    if (this == &inOther)
        return *this;
    fError = inOther.fError;
    fFile = inOther.fFile;
    fLine = inOther.fLine;
    fErrorString = inOther.fErrorString; // the message held before stays with whoever else knows it
    inOther.fErrorString = nullptr;
    return *this;
}

TNqException::~TNqException()
{
    delete fErrorString;
    fErrorString = nullptr;
}

const char* TNqException::what() const
{
    return fFile;
}

void NotifyProgramer(int inError)
{
    switch (inError)
    {
    case kNqNoErr:
    case kNqErrSilent:
        break;
    case kNqErrCancelled:
    case kNqErrUserCancelled:
        NqNotify("A cancel exception is being thrown");
        break;
    case kNqErrUnableToConnect:
        NqNotify("An unable to connect exception is being thrown");
        break;
    default:
        NqNotify("An exception is being thrown");
        break;
    }
}

void CatchPlatformException(unsigned char) {}
