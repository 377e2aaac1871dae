// What must not compile: each name given with -D lets in one line that the library refuses. Without any it compiles.

#include "NqCore/PublicAPI/NqArray.h"
#include "NqCore/PublicAPI/NqColorRGBA.h"
#include "NqCore/PublicAPI/NqCompObj.h"
#include "NqCore/PublicAPI/NqExtensibleArray.h"
#include "NqCore/PublicAPI/NqRect.h"

#include <memory>
#include <string>

namespace
{

// Its copy is written out, but bytes do as well.
struct TNamed
{
    TNamed() = default;
    TNamed(const TNamed& other) : fName(other.fName) {}
    TNamed& operator=(const TNamed&) = default;
    int fName = 0;
};

} // namespace

template <>
struct TNqIsBitwiseCopyable<TNamed> : std::true_type
{
};

void UseWhatIsTaken();
void UseWhatIsTaken()
{
    TNqArray<TNamed> named;
    TNqExtensibleArray<TNamed> namedInPlace(4, 2, true);
    namedInPlace.SetElemCount(4);
    TNqArray<TNqPoint> points;
    TNqArray<TNqRect> rects;
    TNqArray<TNqColorRGBA> colors;
    TNqArray<NqGUID> identifiers;

#if defined(REFUSED_STRING_IN_ARRAY)
    TNqArray<std::string> texts;
#elif defined(REFUSED_POINTER_IN_EXTENSIBLE_ARRAY)
    TNqExtensibleArray<std::shared_ptr<int>>(4, 2, true).SetElemCount(4);
#elif defined(REFUSED_ALIGNED_ELEMENT)
    struct alignas(64) TAligned
    {
    };
    TNqArray<TAligned> aligned;
#endif
}
