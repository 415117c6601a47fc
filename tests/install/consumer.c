/* A minimal C user of the installed library. */
#include <lum.h>
#include <stdio.h>
#include <string.h>

int main(void) {
  const float a[4] = {1.0f, 2.0f, 3.0f, 4.0f};
  const float b[4] = {0.5f, 0.5f, -1.0f, 2.0f};
  float d[4] = {0};
  LumSize size = {2, 2};
  LumStatus st = lumiMul_32f_C1R(a, 8, b, 8, d, 8, size);
  const LumLibraryVersion* v = lumiGetLibVersion();
  if (st != lumStsNoErr || d[0] != 0.5f || d[1] != 1.0f || d[2] != -3.0f || d[3] != 8.0f) {
    fprintf(stderr, "multiplication failed: %s\n", lumGetStatusString(st));
    return 1;
  }
  if (strcmp(v->targetCpu, "k0") != 0) return 1;
  /* The header it was built with and the library it runs with agree. */
  if (v->major != LUM_VERSION_MAJOR || v->minor != LUM_VERSION_MINOR ||
      v->majorBuild != LUM_VERSION_PATCH) {
    fprintf(stderr, "header %d.%d.%d, library %d.%d.%d\n", LUM_VERSION_MAJOR, LUM_VERSION_MINOR,
            LUM_VERSION_PATCH, v->major, v->minor, v->majorBuild);
    return 1;
  }
  if (strcmp(lumGetStatusString(lumStsSizeErr), "Wrong value of data size") != 0) return 1;
  printf("consumer ok: %s %s\n", v->name, v->version);
  return 0;
}
