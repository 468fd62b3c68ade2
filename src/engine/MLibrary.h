// The box library: building it from code, reading it at start, and
// instantiating its boxes into the running network.
#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "engine/MFlowManager.h"

namespace quorvel {

// Adds one box type to a library network.
using TLibraryBuilder = std::function<void(TFlowManager& lib)>;

class TLibraryRegistry {
 public:
  static TLibraryRegistry& instance();
  void add(const std::string& boxtype, TLibraryBuilder builder);
  const std::vector<std::pair<std::string, TLibraryBuilder>>& builders() const { return m_Builders; }

 private:
  std::vector<std::pair<std::string, TLibraryBuilder>> m_Builders;
};

// Builds every registered box type into lib, one top-level box each.
void buildLibrary(TFlowManager& lib);

// Reads the library file under lib. A missing or unreadable file logs
// "Error while loading '%s'" and leaves the library empty; gives whether it
// loaded.
bool loadLibrary(TFlowManager& lib, const std::string& filename = "library");

// Makes me.flowlib (loaded from the library file) and me.flowlayout, as the
// main window does at start.
void setUpNetworks(const std::string& libraryFile = "library");

struct TInstantiateOptions {
  std::vector<std::pair<std::string, std::string>> assign;
  std::vector<std::pair<std::string, std::string>> rename;
};

// Copies a box type from me.flowlib into me.flowlayout through the
// clipboard, renames and assigns its ports, and connects it by port names.
TBoxPtr instantiateLibBox(const std::string& name, const TInstantiateOptions& options = {});

// p_Text if no view has that title, else the first free "p_Text (n)".
std::string getFreeGuiTitle(const std::string& text);

// Helpers for builders: ports (identity processors) and processors with a
// key name, at a place on the canvas. A port named `name` on both pins, as
// BMain offers its values; and a view's input port, whose output pin is
// "out" and whose key name is its name: autoconnect joins it to the output
// ports of that name in sibling boxes, and never two views to each other.
std::shared_ptr<TAbstractProcessor> addPort(TFlowManager& lib, const TBoxPtr& box, const std::string& name,
                                            float x, float y);
std::shared_ptr<TAbstractProcessor> addInputPort(TFlowManager& lib, const TBoxPtr& box, const std::string& name,
                                                 float x, float y);
std::shared_ptr<TAbstractProcessor> addNamed(TFlowManager& lib, const TBoxPtr& box, const std::string& classname,
                                             const std::string& keyname, float x, float y);
// A data source holding a value of its own, which the library stores.
std::shared_ptr<TAbstractProcessor> addSource(TFlowManager& lib, const TBoxPtr& box, const std::string& classname,
                                              const std::string& keyname, const TDataPtr& value, float x, float y);
// A script value in the stored text form, such as a settings dictionary.
TDataPtr scriptValue(const char* literal);
// A TArrayPicker of that key name on an output pin of `array`, with a
// settings source of its own ("<keyname> settings", a script value in the
// stored text form) just above it, and a key source when one is given.
std::shared_ptr<TAbstractProcessor> addPicker(TFlowManager& lib, const TBoxPtr& box, const std::string& keyname,
                                              const TProcessorPtr& array, const std::string& arraypin,
                                              const TProcessorPtr& key, const char* settings, float x, float y);
// Connects an output pin of one processor to an input pin of another.
void wire(const TBoxPtr& box, const TProcessorPtr& from, const std::string& outpin, const TProcessorPtr& to,
          const std::string& inpin);

}  // namespace quorvel
