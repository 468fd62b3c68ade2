// libFuzzer target: any bytes as a dataset database file, read by the
// dataset loader. Only SQLite's and the loader's failures may come out.
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

#include "dataset/MDatasetLoader.h"

using namespace quorvel;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const std::string path = "/tmp/quorvel-fuzz-" + std::to_string(::getpid()) + ".db";
  FILE* f = std::fopen(path.c_str(), "wb");
  if (!f) return 0;
  std::fwrite(data, 1, size, f);
  std::fclose(f);
  try {
    TDatabase db(path);
    auto loader = std::make_shared<TDatasetLoader>();
    loader->postCreate();
    loader->readDatabase(db);
    loader->destroy();
  } catch (const std::exception&) {
  }
  std::remove(path.c_str());
  return 0;
}
