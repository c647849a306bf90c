// Every rule the check knows, as data: its id, the conformance test or proxy behaviour it restates
// and a one-line summary. Results name their rule by id; reports order results by this table.
#pragma once

#include <string>
#include <vector>

#include "check/RuleIds.h"

namespace kelvane::tools::check {

struct RuleInfo {
    RuleId id;
    const char* source;   // e.g. "SensorListValid", "proxy"
    const char* summary;  // what a PASS means
};

const std::vector<RuleInfo>& ruleCatalogue();

// Null for an unknown id.
const RuleInfo* findRule(const std::string& id);

// Position in the catalogue, for ordering reports; the catalogue's size for an unknown id.
size_t ruleOrder(const std::string& id);

// "list" for "list.name".
std::string ruleGroup(const std::string& id);

}  // namespace kelvane::tools::check
