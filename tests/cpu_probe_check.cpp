// cpu_probe_check CPU < probe-report
//
// Checks a cpu_probe report. First, that the emulated processor is the one
// asked for (CPU is the qemu -cpu argument: vendor=, family=, model=, level=,
// xlevel= and +flag/-flag are compared with the raw registers), so a flag the
// emulator ignored cannot make the test pass vacuously. Then every value the
// library reported against what the raw registers imply, worked out by the
// independent reference classification.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <iostream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "support/cpu_reference.h"

namespace {

int failures = 0;

template <typename A, typename B>
void expectEq(const std::string& what, const A& got, const B& want) {
  if (got == static_cast<A>(want)) return;
  std::cerr << "MISMATCH " << what << ": library reports " << got << ", expected " << want
            << "\n";
  ++failures;
}

void expectTrue(const std::string& what, bool ok) {
  if (ok) return;
  std::cerr << "MISMATCH " << what << "\n";
  ++failures;
}

// The emulator did not give the processor asked for.
template <typename A, typename B>
void expectAsked(const std::string& what, const A& got, const B& asked) {
  if (got == static_cast<A>(asked)) return;
  std::cerr << "EMULATOR " << what << ": the processor has " << got << ", asked for " << asked
            << "\n";
  ++failures;
}

uint32_t bitOf(uint32_t v, int n) { return (v >> n) & 1u; }

struct Feature {
  const char* name;
  bool inEcx;
  int bit;
};
const Feature kFeatures[] = {
    {"mmx", false, 23}, {"sse", false, 25},   {"sse2", false, 26},  {"sse3", true, 0},
    {"pni", true, 0},   {"ssse3", true, 9},   {"sse4.1", true, 19}, {"sse4_1", true, 19},
    {"sse4.2", true, 20}, {"sse4_2", true, 20}, {"tsc", false, 4},
};

// The processor asked for, as far as the option string says.
void checkEmulatedProcessor(const std::string& cpu, const lumref::Snapshot& s) {
  std::stringstream in(cpu);
  std::string item;
  bool first = true;
  while (std::getline(in, item, ',')) {
    if (first) {  // the base model name
      first = false;
      continue;
    }
    const Feature* f = nullptr;
    if (item[0] == '+' || item[0] == '-') {
      for (const Feature& k : kFeatures)
        if (item.substr(1) == k.name) f = &k;
      if (f == nullptr) {
        std::cerr << "checker does not know feature " << item << "\n";
        ++failures;
        continue;
      }
      const uint32_t reg = f->inEcx ? s.leaf1.ecx : s.leaf1.edx;
      expectAsked("emulated feature " + item, bitOf(reg, f->bit), item[0] == '+' ? 1u : 0u);
      continue;
    }
    const size_t eq = item.find('=');
    const std::string key = item.substr(0, eq), value = item.substr(eq + 1);
    if (key == "vendor") {
      char v[13] = {};
      memcpy(v, &s.leaf0.ebx, 4);
      memcpy(v + 4, &s.leaf0.edx, 4);
      memcpy(v + 8, &s.leaf0.ecx, 4);
      expectAsked("emulated vendor", std::string(v), value);
    } else if (key == "family") {
      const uint32_t family = strtoul(value.c_str(), nullptr, 0);
      const uint32_t base = (s.leaf1.eax >> 8) & 15, ext = (s.leaf1.eax >> 20) & 255;
      expectAsked("emulated family", family <= 15 ? base : base + ext, family);
      if (family <= 15) expectAsked("emulated extended family", ext, 0u);
    } else if (key == "model") {
      const uint32_t model = strtoul(value.c_str(), nullptr, 0);
      expectAsked("emulated model", ((s.leaf1.eax >> 4) & 15) | ((s.leaf1.eax >> 12) & 0xF0), model);
    } else if (key == "level") {
      expectAsked("emulated highest leaf", s.leaf0.eax, strtoul(value.c_str(), nullptr, 0));
    } else if (key == "xlevel") {
      expectAsked("emulated highest extended leaf", s.ext0.eax, strtoul(value.c_str(), nullptr, 0));
    } else {
      std::cerr << "checker does not know option " << item << "\n";
      ++failures;
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: cpu_probe_check CPU < report\n";
    return 2;
  }
  const std::string cpu = argv[1];

  std::map<std::string, std::vector<std::string>> report;
  lumref::Snapshot s;
  s.hasCpuid = true;  // qemu and every host the tests run on have CPUID
  std::string line;
  int rawLeaves = 0;
  while (std::getline(std::cin, line)) {
    std::stringstream ls(line);
    std::string key, word;
    ls >> key;
    std::vector<std::string> words;
    while (ls >> word) words.push_back(word);
    if (key == "raw") {
      uint32_t v[5];
      for (int i = 0; i < 5; ++i) v[i] = strtoul(words.at(i).c_str(), nullptr, 16);
      lumref::Regs r{v[1], v[2], v[3], v[4]};
      switch (v[0]) {
        case 0: s.leaf0 = r; break;
        case 1: s.leaf1 = r; break;
        case 2: s.leaf2 = r; break;
        case 4: s.leaf4 = r; break;
        case 0x80000000u: s.ext0 = r; break;
        case 0x80000001u: s.ext1 = r; break;
        default: std::cerr << "unexpected leaf in report\n"; return 2;
      }
      ++rawLeaves;
    } else {
      report[key] = words;
    }
  }
  if (rawLeaves != 6) {
    std::cerr << "incomplete report: " << rawLeaves << " raw leaves\n";
    return 2;
  }
  auto num = [&](const std::string& key, size_t i = 0) -> long long {
    const auto it = report.find(key);
    if (it == report.end() || it->second.size() <= i) {
      std::cerr << "report lacks " << key << "\n";
      exit(2);
    }
    return strtoll(it->second[i].c_str(), nullptr, 0);
  };
  auto hex = [&](const std::string& key, size_t i = 0) -> uint32_t {
    return static_cast<uint32_t>(strtoull(report.at(key).at(i).c_str(), nullptr, 16));
  };

  if (cpu != "native") checkEmulatedProcessor(cpu, s);

  const lumref::Regs& l1 = s.leaf1;
  expectEq("lum_has_cpuid", num("has_cpuid"), 1);
  expectEq("lum_max_cpuid_input", hex("max_input"), s.leaf0.eax);
  expectEq("lum_has_rdtsc", num("rdtsc"), bitOf(l1.edx, 4));
  expectEq("lum_is_mmx_extension", num("mmx"), bitOf(l1.edx, 23));
  expectEq("lum_is_ssx_extension", num("sse"), bitOf(l1.edx, 25));
  expectEq("lum_is_sse2_extension", num("sse2"), bitOf(l1.edx, 26));
  const uint32_t smt = bitOf(l1.edx, 28) && ((l1.ebx >> 16) & 255) > 1;
  expectEq("lum_is_smt_extension", num("smt"), smt);
  expectEq("lum_is_sse3_extension", num("sse3"), bitOf(l1.ecx, 0));
  expectEq("lum_is_ssse3_extension", num("ssse3"), bitOf(l1.ecx, 9));
  expectEq("lum_is_sse41_extension", num("sse41"), bitOf(l1.ecx, 19));
  expectEq("lum_is_sse42_extension", num("sse42"), bitOf(l1.ecx, 20));
  const long long cores = static_cast<int32_t>(s.leaf0.eax) >= 4 ? (s.leaf4.eax >> 26) + 1 : 1;
  expectEq("lum_get_cores_on_die", num("cores"), cores);
  expectEq("lumGetNumCoresOnDie", num("cores_on_die"), cores);
  const uint32_t x64 = s.ext0.eax >= 0x80000001u ? bitOf(s.ext1.edx, 29) : s.ext0.eax;
  expectEq("lum_is_x64_extension", hex("x64"), x64);
  const bool genuine = lumref::isGenuineTorva(s);
  expectEq("lum_is_GenuineTorva", num("genuine"), genuine ? 1 : 0);

  // The identification record, field by field in record order.
  const long long identWant[20] = {
      (l1.eax >> 8) & 15, l1.eax & 15, (l1.eax >> 4) & 15, (l1.eax >> 11) & 3, l1.edx,
      s.leaf2.eax, s.leaf2.edx, bitOf(l1.edx, 23), 0x5A5A5A5A, bitOf(l1.edx, 25),
      bitOf(l1.edx, 26), smt, bitOf(l1.ecx, 0),
      s.ext0.eax >= 0x80000001u ? bitOf(s.ext1.edx, 29) : 0, bitOf(l1.ecx, 9), cores,
      bitOf(l1.ecx, 19), bitOf(l1.ecx, 20), (l1.eax >> 20) & 255, (l1.eax >> 16) & 15};
  const char* identNames[20] = {"family", "stepping", "model", "type", "featureEdx",
                                "leaf2Eax", "leaf2Edx", "mmx", "spare", "sse", "sse2", "smt",
                                "sse3", "x64", "ssse3", "coresOnDie", "sse41", "sse42",
                                "extFamily", "extModel"};
  for (int i = 0; i < 20; ++i) {
    const bool isHex = i == 4 || i == 5 || i == 6 || i == 8;
    const long long got = isHex ? hex("ident", i) : num("ident", i);
    expectEq(std::string("ident.") + identNames[i], got, identWant[i]);
  }

  const uint32_t code = lumref::cpuType(s);
  const int index = lumref::autoIndex(code);
  expectEq("lumGetCpuType", num("cpu_type"), code);
  expectEq("index before lumStaticInit", num("index_before"), 0);
  expectEq("lumStaticInit status", num("init_status"), genuine ? 0 : 20);
  expectEq("lumStaticInit index", num("index"), index);
  expectEq("targetCpu", report.at("target").at(0), "k" + std::to_string(index));
  expectEq("name", report.at("name").at(0), "lumik" + std::to_string(index) + "t.a");
  expectEq("thread count", num("threads"), num("procs"));

  int size = 0;
  const int status = lumref::cacheStatus(s, &size);
  expectEq("first cache query with a null pointer", num("cache_null"), -8);
  expectEq("cache status", num("cache", 0), status);
  expectEq("cache size", num("cache", 1), size);
  expectEq("cache status, second call", num("cache_again", 0), status);
  expectEq("cache size, second call", num("cache_again", 1), size);

  printf("%s: code %u, build k%d, status %lld, cache %d (%d bytes)%s\n", cpu.c_str(), code, index,
         num("init_status"), status, size, failures ? " -- FAILED" : "");
  expectTrue("the processor code has a build or is one the generic build takes",
             index >= 0 && index <= 5);
  return failures == 0 ? 0 : 1;
}
