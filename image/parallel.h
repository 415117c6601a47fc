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
// The scopes that do it are core/fp_control.h's.
//
// Included through image/build.h.
#ifndef LUM_IMAGE_PARALLEL_H
#define LUM_IMAGE_PARALLEL_H

LUM_BEGIN_BUILD

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
