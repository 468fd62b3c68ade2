#include "MRegistry.h"

#include "engine/MHookProcessor.h"
#include "engine/MSources.h"

namespace quorvel {

TProcessorRegistry& TProcessorRegistry::instance() {
  static TProcessorRegistry registry;
  return registry;
}

void TProcessorRegistry::add(const std::string& classname, TProcessorFactory factory) {
  m_Factories[classname] = std::move(factory);
}

const TProcessorFactory* TProcessorRegistry::find(const std::string& classname) const {
  auto it = m_Factories.find(classname);
  if (it != m_Factories.end()) return &it->second;
  // A presentation class that this process does not link: its core class,
  // which declares the same pins.
  it = m_Factories.find(classname + "Cpp");
  return it == m_Factories.end() ? nullptr : &it->second;
}

std::vector<std::string> TProcessorRegistry::names() const {
  std::vector<std::string> result;
  for (const auto& [name, factory] : m_Factories) result.push_back(name);
  return result;
}

TDataRegistry& TDataRegistry::instance() {
  static TDataRegistry registry;
  return registry;
}

void TDataRegistry::add(const std::string& classname, const std::string& baseclass, TDataFactory factory) {
  m_Entries[classname] = Entry{baseclass, std::move(factory)};
}

TDataPtr TDataRegistry::create(const std::string& classname) const {
  auto it = m_Entries.find(classname);
  if (it == m_Entries.end() || !it->second.factory) return nullptr;
  return it->second.factory();
}

bool TDataRegistry::isSubclass(const std::string& derived, const std::string& base) const {
  std::string name = derived;
  // The tree is shallow; the bound guards against a cycle in registrations.
  for (int depth = 0; depth < 64; ++depth) {
    if (name == base) return true;
    auto it = m_Entries.find(name);
    if (it == m_Entries.end() || it->second.base.empty()) return false;
    name = it->second.base;
  }
  return false;
}

std::vector<std::string> TDataRegistry::names() const {
  std::vector<std::string> result;
  for (const auto& [name, entry] : m_Entries) result.push_back(name);
  return result;
}

void registerEngineClasses() {
  static bool done = false;
  if (done) return;
  done = true;
  registerSourceClasses();
  TProcessorRegistry::instance().add<THookProcessorCpp>();
  TProcessorRegistry::instance().add<THookProcessor>();
}

TDataPtr makeData(const std::string& classname, const std::string& text) {
  TDataPtr value = TDataRegistry::instance().create(classname);
  if (!value) throw TFlowError("Unknown value class '" + classname + "'");
  value->unstringify(text);
  return value;
}

std::string storedClassName(const std::string& classname) {
  constexpr std::string_view suffix = "Cpp";
  if (classname.size() > suffix.size() && classname.compare(classname.size() - 3, 3, suffix) == 0)
    return classname.substr(0, classname.size() - 3);
  return classname;
}

bool canConnect(const TAbstractPin& a, const TAbstractPin& b) {
  if (a.isInputPin() == b.isInputPin()) return false;
  const TDataRegistry& reg = TDataRegistry::instance();
  return reg.isSubclass(a.m_AcceptedType, b.m_AcceptedType) || reg.isSubclass(b.m_AcceptedType, a.m_AcceptedType);
}

}  // namespace quorvel
