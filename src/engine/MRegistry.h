// Registries that create processors and values by class name. Flow files
// store plain class names; loading one goes through here.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "MFlowManager.h"

namespace quorvel {

class TProcessorRegistry {
 public:
  static TProcessorRegistry& instance();

  void add(const std::string& classname, TProcessorFactory factory);
  template <class T>
  void add() {
    add(T::kClassName, [] { return std::make_shared<T>(); });
  }
  // Null when no class of that name is known. A plain name that is not
  // registered finds its core class "<name>Cpp".
  const TProcessorFactory* find(const std::string& classname) const;
  std::vector<std::string> names() const;

 private:
  std::map<std::string, TProcessorFactory> m_Factories;
};

using TDataFactory = std::function<TDataPtr()>;

// Value classes by name, with the name of their base class, so that the flow
// canvas can tell whether two pins take compatible values.
class TDataRegistry {
 public:
  static TDataRegistry& instance();

  void add(const std::string& classname, const std::string& baseclass, TDataFactory factory);
  template <class T>
  void add(const std::string& baseclass) {
    add(T::kClassName, baseclass, [] { return std::make_shared<T>(); });
  }
  // A class known only by its place in the tree, with no script-free way to
  // make one.
  void addAbstract(const std::string& classname, const std::string& baseclass) {
    add(classname, baseclass, nullptr);
  }
  // Null when the class is unknown or cannot be made with no arguments.
  TDataPtr create(const std::string& classname) const;
  bool isKnown(const std::string& classname) const { return m_Entries.count(classname) != 0; }
  // True when `derived` is `base` or one of its subclasses.
  bool isSubclass(const std::string& derived, const std::string& base) const;
  std::vector<std::string> names() const;

 private:
  struct Entry {
    std::string base;
    TDataFactory factory;
  };
  std::map<std::string, Entry> m_Entries;
};

// Enters the classes of the engine and the values in the registries;
// calling it again does nothing. Each library above enters its own.
void registerEngineClasses();

// A value of a registered class, read from its stored text form; raises
// TFlowError for a class that is not registered. The engine makes values
// this way, knowing none of their classes.
TDataPtr makeData(const std::string& classname, const std::string& text);

// The name under which flow files store a processor class: the plain name
// of a class pair, so "TFoo" also for its core class "TFooCpp".
std::string storedClassName(const std::string& classname);

// The connection rule of the flow canvas: one input and one output pin, and
// the value class of one a subclass of the other's, or the same.
bool canConnect(const TAbstractPin& a, const TAbstractPin& b);

}  // namespace quorvel
