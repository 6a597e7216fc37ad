// The rules of the house, as questions about its own sources. Each check returns one line per breach, with the file's
// path, so that a failing test says what to mend.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace tovi::house {

using Breaches = std::vector<std::string>;

// Texts by path relative to the repository, with forward slashes.
struct SourceTree {
  std::map<std::string, std::string> files;

  // Everything that people write: sources, tests, benchmarks, scripts, build files, pages.
  static SourceTree read(const std::string& root);
};

// A file that includes from a floor above its own; a folder of src/ that stands on no floor; a quoted include that
// doesn't name a file from src/ on; and logic that picks its machine by including one.
Breaches upwardIncludes(const SourceTree& tree);

// Files of src/ that include each other in a circle.
Breaches includeCircles(const SourceTree& tree);

// A file of C++ that the CMakeLists.txt of its folder, or of one above it, doesn't list.
Breaches filesOutOfTheBuild(const SourceTree& tree);

// Includes that cost every build: the whole JSON library in a header, streams anywhere in src/.
Breaches costlyIncludes(const SourceTree& tree);

// References to papers and places that a reader of this repository doesn't have, and hosts from which packages come.
Breaches foreignReferences(const SourceTree& tree);

// A header that may be included twice, or that says nothing about itself in its first line.
Breaches barehandedHeaders(const SourceTree& tree);

}  // namespace tovi::house
