// Lays out a window: a bar of tools, a picture in the proportion of a film, and what a mouse click hits.

#include "NqCore/PublicAPI/NqRect.h"
#include "NqHost/PublicAPI/NqHost.h"

#include <cstdio>

namespace
{

void Print(const char* inName, const TNqRect& inRect)
{
    std::printf("%-8s %4d,%4d  %4d by %d\n", inName, inRect.left, inRect.top, inRect.GetWidth(), inRect.GetHeight());
}

} // namespace

int main()
{
    const TNqHost host;
    const TNqRect window(0, 0, 800, 600);
    const TNqRect tools(window.TopLeft(), TNqPoint(64, window.bottom));
    TNqRect canvas(tools.right, window.top, window.right, window.bottom);
    canvas.Inset(8, 8);
    TNqRect picture;
    picture.MaximizeInside(canvas, TNqPoint(16, 9));
    Print("tools", tools);
    Print("canvas", canvas);
    Print("picture", picture);

    // Half-open: the pixel at `right` belongs to the neighbour.
    const TNqPoint edge(tools.right, 300);
    std::printf("x = %d is in the %s\n", edge.x, tools.PtInside(edge) ? "tools" : "window beside them");

    // What has to be drawn anew: the union of the changes, as far as it shows.
    TNqRect dirty;
    dirty.SetInvalid();
    dirty.Union(TNqRect(700, 500, 900, 560));
    dirty.Union(TNqRect(640, 520, 720, 580));
    std::printf("drawn: %s\n", dirty.Intersect(window, true) ? "yes" : "nothing");
    Print("dirty", dirty);

    TNqPoint pinned;
    picture.PinPoint(TNqPoint(20, 590), pinned);
    std::printf("a drag to 20,590 stays in the picture at %d,%d\n", pinned.x, pinned.y);
    return 0;
}
