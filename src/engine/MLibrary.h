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

// A view's title: what its "gui title" port carries, or, before the port
// ran, what was assigned to it or stands in the box's "gui title text".
// Empty when the box has no title.
std::string guiTitleOf(const TBoxPtr& box);
// The title a view of that box type gets when none is given.
std::string defaultGuiTitle(const std::string& boxtype);

// A view's "gui title" port, with the source that holds the title so that
// a stored view keeps it ("gui title text"), and the flag of the view in
// front of the others ("gui front").
std::shared_ptr<TAbstractProcessor> addTitlePort(TFlowManager& lib, const TBoxPtr& box, const std::string& title,
                                                 float x, float y);
// Which view is in front: sets "gui front" of every view box of the
// running network, true for that one only.
void markFrontView(const TBoxPtr& front);
// The views of a network just loaded: a view stored without a title gets
// the first free one of its type; gives the box that was stored in front.
TBoxPtr settleLoadedViews(const std::vector<TBoxPtr>& boxes);

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
