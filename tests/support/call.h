// A call of an image function through the C calling convention, from its argument words, with the
// stack misaligned in turn; and the argument checks, in their order, that must refuse a broken one.
#ifndef LUM_TESTS_SUPPORT_CALL_H
#define LUM_TESTS_SUPPORT_CALL_H

#include <algorithm>
#include <climits>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "lum.h"

// Calls a cdecl function with the stack pointer `offset` bytes (0, 4, 8 or 12) past a 16-byte
// boundary at the call, as older i386 code may do (misaligned_call.S).
extern "C" uint32_t lumtest_call_misaligned(const void* fn, const uint32_t* args, int nargs,
                                            int offset);

namespace lumtest {

// A pointer as an argument word.
inline uint32_t word(const void* p) { return uint32_t(reinterpret_cast<uintptr_t>(p)); }

// A call's arguments: `head` words, pointer and step of each source and of the destination, the
// size, then `tail` words.
struct Args {
  std::vector<uint32_t> head, tail;
  int sources, srcStep[2], dstStep;
  const void* src[2];
  void* dst;
  LumSize size;
};
inline LumStatus call(const void* fn, const Args& a) {
  std::vector<uint32_t> w = a.head;
  for (int i = 0; i < a.sources; ++i) w.insert(w.end(), {word(a.src[i]), uint32_t(a.srcStep[i])});
  w.insert(w.end(),
           {word(a.dst), uint32_t(a.dstStep), uint32_t(a.size.width), uint32_t(a.size.height)});
  w.insert(w.end(), a.tail.begin(), a.tail.end());
#if defined(LUM_SANITIZE)  // the sanitizer flags a hand-made call frame itself; a block of words
  struct Words {
    uint32_t w[12];
  } words{};  // by value is the same stack as the words one by one
  std::copy(w.begin(), w.end(), words.w);
  return reinterpret_cast<LumStatus (*)(Words)>(const_cast<void*>(fn))(words);
#else
  static int turn = 0;
  return LumStatus(lumtest_call_misaligned(fn, w.data(), int(w.size()), 4 * (turn++ % 4)));
#endif
}

// An argument check: how it breaks a good call, the status that must come
// back, and its condition, which holds for any call it must refuse. A call
// gets the status of the first check whose condition holds (the checks are
// listed in their documented order). The shared ones: null pointers in
// argument order, then height and width below 1.
struct Check {
  std::string what;
  std::function<void(Args&)> breaks;
  LumStatus status;
  std::function<bool(const Args&)> holds;
};
inline LumStatus verdict(const std::vector<Check>& checks, const Args& a) {
  for (const Check& c : checks)
    if (c.holds(a)) return c.status;
  return lumStsNoErr;
}
inline std::vector<Check> nullAndSizeChecks(int sources) {
  std::vector<Check> c;
  for (int i = 0; i < sources; ++i)
    c.push_back({"source " + std::to_string(i + 1) + " null", [i](Args& a) { a.src[i] = nullptr; },
                 lumStsNullPtrErr, [i](const Args& a) { return a.src[i] == nullptr; }});
  c.push_back({"destination null", [](Args& a) { a.dst = nullptr; }, lumStsNullPtrErr,
               [](const Args& a) { return a.dst == nullptr; }});
  const auto sizeBelowOne = [](const Args& a) { return a.size.width < 1 || a.size.height < 1; };
  for (int bad : {0, -1, INT_MIN})
    for (bool width : {false, true})
      c.push_back({(width ? "width " : "height ") + std::to_string(bad),
                   [=](Args& a) { (width ? a.size.width : a.size.height) = bad; }, lumStsSizeErr,
                   sizeBelowOne});
  return c;
}

}  // namespace lumtest

#endif
