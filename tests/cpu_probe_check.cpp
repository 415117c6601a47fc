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

#include <algorithm>
#include <iostream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "support/cpu_reference.h"

namespace {

int failures = 0;

// `kind` is MISMATCH for the library, EMULATOR for a processor other than
// the one asked for.
template <typename A, typename B>
void expectEq(const std::string& what, const A& got, const B& want, const char* kind = "MISMATCH") {
  if (got == static_cast<A>(want)) return;
  std::cerr << kind << " " << what << ": got " << got << ", expected " << want << "\n";
  ++failures;
}

uint32_t bitOf(uint32_t v, int n) { return (v >> n) & 1u; }

std::string vendorOf(const lumref::Regs& r) {
  char v[13] = {};
  memcpy(v, &r.ebx, 4);
  memcpy(v + 4, &r.edx, 4);
  memcpy(v + 8, &r.ecx, 4);
  return v;
}

// The processor asked for, as far as the option string says.
void checkEmulatedProcessor(const std::string& cpu, const lumref::Snapshot& s) {
  const std::map<std::string, std::pair<bool, int>> features = {  // in ECX?, bit
      {"mmx", {false, 23}}, {"sse", {false, 25}}, {"sse2", {false, 26}}, {"sse3", {true, 0}},
      {"ssse3", {true, 9}}, {"sse4.1", {true, 19}}, {"sse4.2", {true, 20}}};
  std::stringstream in(cpu.substr(cpu.find(',') + 1));  // past the base model name
  std::string item;
  while (std::getline(in, item, ',')) {
    const size_t eq = item.find('=');
    const std::string key = item.substr(0, eq), value = eq == std::string::npos ? "" : item.substr(eq + 1);
    const uint32_t n = strtoul(value.c_str(), nullptr, 0);
    const uint32_t family = (s.leaf1.eax >> 8) & 15, extFamily = (s.leaf1.eax >> 20) & 255;
    const auto f = features.find(item.substr(1));
    if ((item[0] == '+' || item[0] == '-') && f != features.end()) {
      const uint32_t reg = f->second.first ? s.leaf1.ecx : s.leaf1.edx;
      expectEq("feature " + item, bitOf(reg, f->second.second), item[0] == '+' ? 1u : 0u, "EMULATOR");
    } else if (key == "vendor") {
      expectEq("vendor", vendorOf(s.leaf0), value, "EMULATOR");
    } else if (key == "family") {
      expectEq("family", n <= 15 ? family : family + extFamily, n, "EMULATOR");
      if (n <= 15) expectEq("extended family", extFamily, 0u, "EMULATOR");
    } else if (key == "model") {
      expectEq("model", ((s.leaf1.eax >> 4) & 15) | ((s.leaf1.eax >> 12) & 0xF0), n, "EMULATOR");
    } else if (key == "level") {
      expectEq("highest leaf", s.leaf0.eax, n, "EMULATOR");
    } else if (key == "xlevel") {
      expectEq("highest extended leaf", s.ext0.eax, n, "EMULATOR");
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
  std::map<uint32_t, lumref::Regs> raw;
  std::string line;
  while (std::getline(std::cin, line)) {
    std::stringstream ls(line);
    std::string key, word;
    ls >> key;
    std::vector<std::string> words;
    while (ls >> word) words.push_back(word);
    if (key == "raw" && words.size() == 5) {
      uint32_t v[5];
      for (int i = 0; i < 5; ++i) v[i] = strtoul(words[i].c_str(), nullptr, 16);
      raw[v[0]] = {v[1], v[2], v[3], v[4]};
    } else {
      report[key] = words;
    }
  }
  if (raw.size() != 6) {
    std::cerr << "incomplete report: " << raw.size() << " raw leaves\n";
    return 2;
  }
  lumref::Snapshot s;
  s.hasCpuid = true;  // qemu and every host the tests run on have CPUID
  s.leaf0 = raw[0], s.leaf1 = raw[1], s.leaf2 = raw[2], s.leaf4 = raw[4];
  s.ext0 = raw[0x80000000u], s.ext1 = raw[0x80000001u];
  auto num = [&](const std::string& key, size_t i = 0) -> long long {
    const auto it = report.find(key);
    if (it == report.end() || it->second.size() <= i) {
      std::cerr << "report lacks " << key << "\n";
      exit(2);
    }
    return strtoll(it->second[i].c_str(), nullptr, 0);
  };
  auto u32 = [&](const std::string& key, size_t i = 0) { return static_cast<uint32_t>(num(key, i)); };

  if (cpu != "native") checkEmulatedProcessor(cpu, s);

  const lumref::Regs& l1 = s.leaf1;
  const uint32_t smt = bitOf(l1.edx, 28) && ((l1.ebx >> 16) & 255) > 1;
  const uint32_t cores = static_cast<int32_t>(s.leaf0.eax) >= 4 ? (s.leaf4.eax >> 26) + 1 : 1;
  const bool hasExt1 = s.ext0.eax >= 0x80000001u;
  const bool genuine = lumref::isGenuineTorva(s);
  const std::pair<const char*, uint32_t> queries[] = {
      {"has_cpuid", 1}, {"max_input", s.leaf0.eax}, {"rdtsc", bitOf(l1.edx, 4)},
      {"mmx", bitOf(l1.edx, 23)}, {"sse", bitOf(l1.edx, 25)}, {"sse2", bitOf(l1.edx, 26)},
      {"smt", smt}, {"sse3", bitOf(l1.ecx, 0)}, {"ssse3", bitOf(l1.ecx, 9)},
      {"sse41", bitOf(l1.ecx, 19)}, {"sse42", bitOf(l1.ecx, 20)}, {"cores", cores},
      {"cores_on_die", cores}, {"x64", hasExt1 ? bitOf(s.ext1.edx, 29) : s.ext0.eax},
      {"genuine", genuine}};
  for (const auto& [key, want] : queries) expectEq(key, u32(key), want);

  // The identification record, field by field in record order.
  const std::pair<const char*, uint32_t> ident[20] = {
      {"family", (l1.eax >> 8) & 15}, {"stepping", l1.eax & 15}, {"model", (l1.eax >> 4) & 15},
      {"type", (l1.eax >> 11) & 3}, {"featureEdx", l1.edx}, {"leaf2Eax", s.leaf2.eax},
      {"leaf2Edx", s.leaf2.edx}, {"mmx", bitOf(l1.edx, 23)}, {"spare", 0x5A5A5A5A},
      {"sse", bitOf(l1.edx, 25)}, {"sse2", bitOf(l1.edx, 26)}, {"smt", smt},
      {"sse3", bitOf(l1.ecx, 0)}, {"x64", hasExt1 && bitOf(s.ext1.edx, 29)},
      {"ssse3", bitOf(l1.ecx, 9)}, {"coresOnDie", cores}, {"sse41", bitOf(l1.ecx, 19)},
      {"sse42", bitOf(l1.ecx, 20)}, {"extFamily", (l1.eax >> 20) & 255}, {"extModel", (l1.eax >> 16) & 15}};
  for (int i = 0; i < 20; ++i) expectEq(std::string("ident.") + ident[i].first, u32("ident", i), ident[i].second);

  const uint32_t code = lumref::cpuType(s);
  // The highest build the leaf-1 feature bits allow, each level on top of
  // the lower ones.
  const bool levels[5] = {bitOf(l1.edx, 23) && bitOf(l1.edx, 25), bitOf(l1.edx, 26) != 0, bitOf(l1.ecx, 0) != 0,
                          bitOf(l1.ecx, 9) != 0, bitOf(l1.ecx, 19) != 0};
  int level = 0;
  while (level < 5 && levels[level]) ++level;
  const int index = std::min(lumref::autoIndex(code), level);
  expectEq("lumGetCpuType", num("cpu_type"), code);
  expectEq("index before lumStaticInit", num("index_before"), 0);
  expectEq("lumStaticInit status", num("init_status"), genuine ? 0 : 20);
  expectEq("lumStaticInit index", num("index"), index);
  expectEq("targetCpu", report.at("target").at(0), "k" + std::to_string(index));
  expectEq("name", report.at("name").at(0), "lumik" + std::to_string(index) + "t.a");
  expectEq("thread count", num("threads"), num("procs"));
  expectEq("multiplication status", num("mul", 0), 0);
  expectEq("wrong products", num("mul", 1), 0);

  int size = 0;
  const int status = lumref::cacheStatus(s, &size);
  expectEq("first cache query with a null pointer", num("cache_null"), -8);
  for (const char* key : {"cache", "cache_again"}) {
    expectEq(std::string(key) + " status", num(key, 0), status);
    expectEq(std::string(key) + " size", num(key, 1), size);
  }
  printf("%s: code %u, build k%d, status %lld, cache %d (%d bytes)%s\n", cpu.c_str(), code, index,
         num("init_status"), status, size, failures ? " -- FAILED" : "");
  return failures == 0 ? 0 : 1;
}
