// What a source file of Java, Kotlin, JavaScript, TypeScript, Go, Rust or
// C# says of its place and its dependencies: the package or namespaces it
// declares and the modules it names. Read from the text alone, past
// comments and string contents; resolving the names to files of the tree
// is the resolver's.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace quorvel {

enum class TSourceLanguage { Other, Java, Kotlin, JavaScript, TypeScript, Go, Rust, CSharp };

// By the file's extension.
TSourceLanguage sourceLanguageOfPath(const std::string& path);
// The name the dataset gives the language: "Java", "TypeScript", ...
const char* sourceLanguageName(TSourceLanguage language);

struct TSourceReference {
  // As written: "a.b.C" or "a.b.*" (Java, Kotlin), a module specifier
  // (JavaScript, TypeScript), an import path (Go), "crate::a::b",
  // "super::x", "self::y" or a module name of "mod" (Rust), a namespace or
  // type (C#).
  std::string target;
  // "import", "export" (a re-export), "require", "dynamic import", "use",
  // "mod" or "using".
  std::string kind;
  bool operator==(const TSourceReference&) const = default;
};

struct TSourceFacts {
  // Java and Kotlin: the package line's name.
  std::string package;
  // Java and Kotlin: the names declared at the top of the file; C#: the
  // namespaces declared.
  std::vector<std::string> declared;
  std::vector<TSourceReference> references;
};

TSourceFacts scanSource(TSourceLanguage language, std::string_view text);

}  // namespace quorvel
