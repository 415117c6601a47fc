// The version record of this build, returned by lumiGetLibVersion when the
// build is selected. The records of the six builds differ only in the tag.
#include "image/build.h"

LUM_BEGIN_BUILD
namespace {
const LumLibraryVersion kVersion = {
    5, 3, 85, 499, LUM_STR(LUM_TAG), "lumi" LUM_STR(LUM_TAG) "t.a", ownVersionString, ownBuildDate,
};
}  // namespace
LUM_END_BUILD

extern "C" const LumLibraryVersion* LUM_ENTRY(lumiGetLibVersion)(void) {
  return &lum::LUM_TAG::kVersion;
}
