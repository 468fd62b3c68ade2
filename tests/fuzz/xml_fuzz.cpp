// libFuzzer target: any bytes as an XML dataset, converted and then loaded.
// Only the converter's and the loader's own failures may come out.
#include <cstddef>
#include <cstdint>
#include <string>

#include "dataset/MDatasetLoader.h"
#include "dataset/MXmlReader.h"

using namespace quorvel;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  try {
    auto db = TXmlReader("fuzz.xml").convertText(text);
    auto loader = std::make_shared<TDatasetLoader>();
    loader->postCreate();
    loader->readDatabase(*db);
    loader->destroy();
  } catch (const std::exception&) {
  }
  return 0;
}
