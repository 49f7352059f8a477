#pragma once

#include <optional>
#include <string>

namespace standin {

/// The collection's command line taken apart.
struct Collection {
  std::wstring script;
  std::wstring bundle;
  std::wstring folder;
  std::wstring filter;  ///< "-s" and what follows it
};

/// Whether the line is the capability query's, character for character.
bool isQuery(const std::wstring& commandLine);

/// Takes the collection's command line apart; nothing when any character of it is out of place. The filter is
/// "-s", then " -c NAME,..." or not, then " -dumps none|prod|sys|prod,sys" or not.
std::optional<Collection> parseCollection(const std::wstring& commandLine);

/// What about the surroundings does not fit a collection: the script is not the one in the working folder, the bundle
/// is not named as bundles are, the folder does not exist. Empty when all is well.
std::string objectionTo(const Collection& collection);

/// As objectionTo, for the query: its script must be in the working folder.
std::string objectionToQuery();

/// Appends one JSON line about this call to the record: mode, outcome, command line, arguments, working folder and
/// the kinds of the standard handles. Does nothing when `file` is empty.
void record(const std::string& file, const std::string& mode, const std::string& outcome);

}  // namespace standin
