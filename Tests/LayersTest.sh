#!/usr/bin/env bash
# What Scripts/layers says of a small tree with two layers, and of one fault put into it at a time.
#   LayersTest.sh WORK-FOLDER C++-COMPILER
set -euo pipefail
layers=$(cd "$(dirname "$0")/../Scripts" && pwd)/layers
work=$1 compiler=$2
core=NqCore/Source/Common
failed=0

make() { # a tree without faults, built
  rm -rf "$work"
  mkdir -p "$work"/clean/{Scripts,NqCore/PublicAPI,NqCore/Include,$core,NqHost/PublicAPI}
  cd "$work/clean"
  cp "$layers" Scripts
  cat >NqCore/CMakeLists.txt <<'END'
nq_layer(low "what stands below (and has
         two lines)" # and a comment, NotThere.h
         PublicAPI Low.h Source/Common Low.cpp)
nq_layer(high "what stands on it"
         PublicAPI High.h Source/Common High.cpp)
nq_reaches_up(Low.cpp "as it must" High.h Name::High Hidden "vtable for Shape" Shape::~Shape)
END
  echo 'inline int Inline() { return 1; }' >NqCore/PublicAPI/Low.h
  echo '#include "NqCore/PublicAPI/Low.h"
    namespace Name { int High(int); }
    struct Shape { virtual ~Shape(); };' >NqCore/PublicAPI/High.h
  echo '#include "NqCore/PublicAPI/High.h"
    int Hidden(int);
    int Low(int a) { Shape shape; return Inline() + Name::High(a) + Hidden(a) + (&shape == nullptr); }' >$core/Low.cpp
  echo '#include "NqCore/PublicAPI/High.h"
    int Low(int);
    int Hidden(int a) { return a; }
    int Other(int a) { return a + Inline(); }
    int Name::High(int a) { return a + Low(a); }
    Shape::~Shape() {}' >$core/High.cpp
  echo '#include "NqCore/PublicAPI/High.h"' >NqHost/PublicAPI/Host.h
  build
}

build() {
  mkdir -p build/NqCore/CMakeFiles/NqCore.dir/Source/Common
  for name in Low High; do
    "$compiler" -w -std=c++17 -I. -c $core/$name.cpp -o build/NqCore/CMakeFiles/NqCore.dir/Source/Common/$name.cpp.o
  done
}

tree() { # a copy of it
  cd "$work"
  rm -rf tree
  cp -r clean tree
  cd tree
}

# expect "LINE" CHANGE...: after the change the check fails and prints exactly this.
expect() {
  local said status=0
  tree
  eval "${@:2}"
  said=$(Scripts/layers build 2>&1) || status=$?
  if [ $status -ne 1 ] || [ "$said" != "$1" ]; then
    printf 'After %s\n  expected  %s\n  got (%d)   %s\n' "${*:2}" "$1" $status "$said"
    failed=1
  fi
}

make
Scripts/layers >/dev/null && Scripts/layers build >/dev/null || failed=1

above=', which stands above: Low.h is in "low", High.h in "high" (NqCore/CMakeLists.txt). Move what is used down, or Low.h up'
expect "NqCore/PublicAPI/Low.h:2: includes High.h$above" "echo '#  include \"NqCore/PublicAPI/High.h\"' >>NqCore/PublicAPI/Low.h"
expect "$core/Low.cpp: uses Other of High.cpp${above//.h/.cpp}" "echo 'int Other(int); int More() { return Other(1); }' >>$core/Low.cpp; build"
expect "NqCore/CMakeLists.txt: Low.cpp uses no Hidden that stands above it: take it out of nq_reaches_up" \
  "sed -i 's/+ Hidden(a)//' $core/Low.cpp; build"
expect "NqCore/CMakeLists.txt: Low.cpp uses no High.h that stands above it: take it out of nq_reaches_up" \
  "sed -i '1s/.*/#include \"NqCore\/PublicAPI\/Low.h\"/' $core/Low.cpp"
expect "NqCore/CMakeLists.txt: Gone.cpp uses no High.h that stands above it: take it out of nq_reaches_up" \
  "echo 'nq_reaches_up(Gone.cpp \"once\" High.h)' >>NqCore/CMakeLists.txt"
expect "NqHost/PublicAPI/Host.h:2: NqHost/PublicAPI must not include NqCore/Include, as it does with Private.h
NqCore/Include/Private.h: stands in no layer of NqCore/CMakeLists.txt" \
  "echo '#include \"NqCore/Include/Private.h\"' >>NqHost/PublicAPI/Host.h; touch NqCore/Include/Private.h"
expect "NqCore/PublicAPI/High.h:4: NqCore/PublicAPI must not include NqHost/PublicAPI, as it does with Host.h" \
  "echo '#include \"NqHost/PublicAPI/Host.h\"' >>NqCore/PublicAPI/High.h"
expect "NqHost/PublicAPI/Host.h:2: \"Host.h\" is no file of the project: its path starts at the root of the repository" \
  "echo '#include \"Host.h\"' >>NqHost/PublicAPI/Host.h"
expect "Other/New.h: stands in no folder of the table in Scripts/layers" "mkdir Other; touch Other/New.h"
expect 'NqCore/PublicAPI/Gone.h: is listed in "low" and is not there' "sed -i 's/Low.h Source/Low.h Gone.h Source/' NqCore/CMakeLists.txt"
expect 'NqCore/PublicAPI/Low.h stands in two layers, "low" and "high"' "sed -i 's/PublicAPI High.h/& Low.h/' NqCore/CMakeLists.txt"

tree
rm -r build/NqCore
status=0
Scripts/layers build 2>/dev/null || status=$?
[ $status -eq 2 ] || { echo "Without objects: $status"; failed=1; }
exit $failed
