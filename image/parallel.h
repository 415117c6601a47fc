// Parallel regions of one build: how many threads a region asks for, and the
// caller's floating-point environment in its worker threads.
//
// Worker threads belong to the OpenMP runtime and keep whatever settings they
// last had. For the time it works on the caller's pixels each worker takes
// the caller's x87 control word and (k1..k5) MXCSR control bits, so that
// rounding, precision, flush-to-zero and denormals-are-zero apply to every
// row exactly as on the calling thread; the exception flags it raises are
// handed back to the caller, and its own settings are restored. Results are
// then the same for any thread count under any environment the caller sets.
//
// Included through image/build.h.
#ifndef LUM_IMAGE_PARALLEL_H
#define LUM_IMAGE_PARALLEL_H

LUM_BEGIN_BUILD

// x87 exception flags (status word) and masks (control word) share bits 0..5,
// as do the MXCSR exception flags; the MXCSR masks are bits 7..12.
constexpr unsigned kFpFlags = 0x3F;
// Every SSE exception masked: the library's own steps (a conversion of its
// sums to pixels) never trap, whatever the caller unmasks; their flags still
// reach the caller.
constexpr uint32_t kMxcsrMasks = 0x1F80;

// The x87 environment as fnstenv stores it in 32-bit protected mode.
struct X87Env {
  uint16_t control, unused0, status, unused1;
  uint32_t rest[5];
};

struct FpControl {
  uint16_t x87;
  uint32_t mxcsr;
};

inline FpControl readFpControl() {
  FpControl c{0, 0};
  __asm__ volatile("fnstcw %0" : "=m"(c.x87));
#if LUM_BUILD >= 1
  __asm__ volatile("stmxcsr %0" : "=m"(c.mxcsr));
#endif
  return c;
}

// A thread under a given floating-point control (x87 control word and, in
// k1..k5, the MXCSR's control bits), from construction until finish(), which
// restores the thread's own environment and returns the exception flags
// raised meanwhile: x87 in bits 0..5, MXCSR in bits 8..13. Inactive, it
// changes and reports nothing.
class FpControlScope {
 public:
  explicit FpControlScope(const FpControl& control, bool active = true) : active_(active) {
    if (!active) return;
    // fnstenv masks every x87 exception after storing; the new control word
    // then sets the masks it has.
    __asm__ volatile("fnstenv %0" : "=m"(ownX87_));
    __asm__ volatile("fnclex\n\tfldcw %0" : : "m"(control.x87));
#if LUM_BUILD >= 1
    __asm__ volatile("stmxcsr %0" : "=m"(ownMxcsr_));
    const uint32_t controlOnly = control.mxcsr & ~kFpFlags;
    __asm__ volatile("ldmxcsr %0" : : "m"(controlOnly));
#endif
  }
  unsigned finish() {
    if (!active_) return 0;
    active_ = false;
    uint16_t status;
    __asm__ volatile("fnstsw %0" : "=m"(status));
    unsigned raised = status & kFpFlags;
    __asm__ volatile("fldenv %0" : : "m"(ownX87_));
#if LUM_BUILD >= 1
    uint32_t mxcsr;
    __asm__ volatile("stmxcsr %0" : "=m"(mxcsr));
    raised |= (mxcsr & kFpFlags) << 8;
    __asm__ volatile("ldmxcsr %0" : : "m"(ownMxcsr_));
#endif
    return raised;
  }

 private:
  bool active_;
  X87Env ownX87_;
  uint32_t ownMxcsr_ = 0;
};

// Raises in the calling thread the flags its workers raised (as finish()
// returns them). Only x87 flags whose exception the caller masks are set: an
// unmasked one would already have trapped in the worker, and setting it here
// would trap at the caller's next x87 instruction instead.
inline void raiseFpFlags(unsigned raised) {
  const unsigned x87 = raised & kFpFlags;
  if (x87 != 0) {
    X87Env env;
    __asm__ volatile("fnstenv %0" : "=m"(env));
    env.status = static_cast<uint16_t>(env.status | (x87 & env.control));
    __asm__ volatile("fldenv %0" : : "m"(env));
  }
#if LUM_BUILD >= 1
  const unsigned sse = (raised >> 8) & kFpFlags;
  if (sse != 0) {
    uint32_t mxcsr;
    __asm__ volatile("stmxcsr %0" : "=m"(mxcsr));
    mxcsr |= sse;
    __asm__ volatile("ldmxcsr %0" : : "m"(mxcsr));
  }
#endif
}

// The calling thread's x87 unit under a control word of the library's own
// choosing for as long as this lives: computations whose results must not
// depend on the caller's rounding or precision run under it. The caller's
// control word comes back afterwards. Flags raised meanwhile stay raised
// where the caller masks their exception; the others are cleared, as they
// would trap at the caller's next x87 instruction.
class OwnX87Control {
 public:
  explicit OwnX87Control(uint16_t control) {
    __asm__ volatile("fnstcw %0" : "=m"(caller_));
    __asm__ volatile("fldcw %0" : : "m"(control));
  }
  ~OwnX87Control() {
    uint16_t status;
    __asm__ volatile("fnstsw %0" : "=m"(status));
    const unsigned unmasked = kFpFlags & ~unsigned(caller_);
    if ((status & unmasked) == 0) {
      __asm__ volatile("fldcw %0" : : "m"(caller_));
      return;
    }
    X87Env env;
    __asm__ volatile("fnstenv %0" : "=m"(env));
    env.control = caller_;
    env.status = static_cast<uint16_t>(env.status & ~unmasked);
    __asm__ volatile("fldenv %0" : : "m"(env));
  }
  OwnX87Control(const OwnX87Control&) = delete;
  OwnX87Control& operator=(const OwnX87Control&) = delete;

 private:
  uint16_t caller_;
};

#if LUM_BUILD >= 1
// The same for the SSE unit: MXCSR control bits of the library's own
// choosing, `control` where `callers` is clear and the caller's where it is
// set, for as long as this lives. The exception flags start clear, so that
// raised() tells what the work raised; afterwards the caller's MXCSR comes
// back with those flags added to its own (an SSE flag never traps after the
// fact), so that the caller keeps every flag, set before or raised during.
// A load that would change nothing is skipped.
class OwnMxcsr {
 public:
  explicit OwnMxcsr(uint32_t control, uint32_t callers = 0) {
    caller_ = current();
    const uint32_t own = ((caller_ & callers) | (control & ~callers)) & ~kFpFlags;
    if (own != caller_) __asm__ volatile("ldmxcsr %0" : : "m"(own) : "memory");
  }
  ~OwnMxcsr() {
    const uint32_t now = current(), back = caller_ | (now & kFpFlags);
    if (back != now) __asm__ volatile("ldmxcsr %0" : : "m"(back) : "memory");
  }
  OwnMxcsr(const OwnMxcsr&) = delete;
  OwnMxcsr& operator=(const OwnMxcsr&) = delete;

  uint32_t caller() const { return caller_; }
  uint32_t raised() const { return current() & kFpFlags; }

 private:
  static uint32_t current() {
    uint32_t v;
    __asm__ volatile("stmxcsr %0" : "=m"(v) : : "memory");
    return v;
  }
  uint32_t caller_;
};
#endif

// Whether the rows of a destination are disjoint, so that threads may write
// them at once: the step's magnitude is at least the row's bytes. Rows that
// overlap (a zero step, or one shorter than a row) are written in row order
// by one thread, so the later row wins as it does serially.
inline bool rowsApart(int step, int width, int pixelBytes) {
  const long long magnitude = step < 0 ? -static_cast<long long>(step) : step;
  return magnitude >= static_cast<long long>(width) * pixelBytes;
}

template <class Body>
inline void serialRows(int height, const Body& body) {
  for (int y = 0; y < height; ++y) body(y);
}

// The team for a region of `pieces` independent pieces (rows, bands, parts
// of rows) holding `work` units of work in all (pixels, or pixels times
// kernel cells): ownGetTeamSize's, and no more threads than each get
// `minWorkPerThread` units. Opening a region costs about as much as a fixed
// amount of work, so each operation says how much work a thread must have
// before a second thread pays for itself; 1 means the calling thread alone.
inline int teamFor(long long pieces, long long work, long long minWorkPerThread) {
  const long long affordable = work / minWorkPerThread;
  const long long bound = affordable < pieces ? affordable : pieces;
  return ownGetTeamSize(bound < 64 ? static_cast<int>(bound) : 64);
}

// The team for `pieces` pieces of the rows of a region of `roi` pixels
// (rows, or rows cut in parts): teamFor's, and the calling thread alone
// where the destination rows overlap (rowsApart).
inline int teamForRows(long long pieces, int dstStep, LumSize roi, int pixelBytes,
                       long long minPixelsPerThread) {
  if (!rowsApart(dstStep, roi.width, pixelBytes)) return 1;
  return teamFor(pieces, static_cast<long long>(roi.width) * roi.height, minPixelsPerThread);
}

// Runs body(t, n) on every thread t of a team of n threads, asking the
// runtime for `team` (the runtime may give fewer; when it declines to fork,
// the calling thread runs body(0, 1) alone). Each worker runs under the
// caller's floating-point control and the flags it raises reach the caller.
// Returns the sum of what the bodies returned.
template <class Body>
inline int teamRegion(int team, const Body& body) {
  const FpControl caller = readFpControl();
  unsigned raised = 0;
  int sum = 0;
#pragma omp parallel num_threads(team)
  {
    const int n = omp_get_num_threads(), t = omp_get_thread_num();
    FpControlScope scope(caller, t != 0);
    const int r = body(t, n);
    __atomic_fetch_or(&raised, scope.finish(), __ATOMIC_RELAXED);
    if (r != 0) __atomic_fetch_add(&sum, r, __ATOMIC_RELAXED);
  }
  raiseFpFlags(raised);
  return sum;
}

// The t-th of n equal runs of `total` pieces, in order, the first total % n
// runs one piece longer: pieces from .. to - 1.
struct Run {
  long long from, to;
};
inline Run runOf(int t, int n, long long total) {
  const long long q = total / n, r = total % n;
  const long long from = t * q + (t < r ? t : r);
  return Run{from, from + q + (t < r ? 1 : 0)};
}

// Runs body(i) for i = 0..pieces-1: with a team of one directly on the
// calling thread, in order, without the runtime's team set-up (a system call
// per region on 32-bit x86); otherwise in a parallel region of `team`, thread
// t taking the t-th run of pieces (runOf). When the runtime declines to
// fork, the calling thread runs every run in turn.
template <class Body>
inline void parallelRows(int pieces, int team, const Body& body) {
  if (team == 1) return serialRows(pieces, body);
  teamRegion(team, [&](int t, int n) {
    const Run run = runOf(t, n, pieces);
    for (int i = static_cast<int>(run.from); i < run.to; ++i) body(i);
    return 0;
  });
}

// Cuts `total` rows between the threads of a region of `team`: every
// thread takes total / n rows in order and the last one also the rest, n
// being the team the runtime actually gave. Every thread works its rows out
// for itself from the n it sees, so no thread waits for another before it
// starts. Calls body(from, count) for each non-empty piece.
template <class Body>
inline void chunksLastTakesRest(int team, int total, const Body& body) {
  teamRegion(team, [&](int t, int n) {
    const int chunk = total / n;
    const int count = t == n - 1 ? total - t * chunk : chunk;
    if (count > 0) body(t * chunk, count);
    return 0;
  });
}

LUM_END_BUILD

#endif
