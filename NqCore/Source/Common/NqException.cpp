#include "NqCore/PublicAPI/NqException.h"

#include "NqCore/PublicAPI/NqString.h"

#include <cstddef>

TNqException::TNqException(int error, const char* file, int line) : TNqException(error, nullptr, file, line) {}

TNqException::TNqException(int error, TNqString* errorString, const char* file, int line)
    : fError(error),
      fFile(file),
      fLine(line),
      fErrorString(errorString)
{
    NotifyProgramer(error);
}

TNqException::TNqException(const TNqException& other)
    : TNqObject(),
      fError(other.fError),
      fFile(other.fFile),
      fLine(other.fLine),
      fErrorString(other.fErrorString)
{
    other.fErrorString = nullptr;
}

TNqException& TNqException::operator=(const TNqException& other)
{
    if (this == &other)
        return *this;
    fError = other.fError;
    fFile = other.fFile;
    fLine = other.fLine;
    fErrorString = other.fErrorString; // the message held before stays with whoever else knows it
    other.fErrorString = nullptr;
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

void NotifyProgramer(int error)
{
    switch (error)
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
