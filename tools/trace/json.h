// SPDX-License-Identifier: MIT
// What the report and the comparison have in common as JSON.
#ifndef VEKTRACE_JSON_H
#define VEKTRACE_JSON_H

#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "report.h"

namespace vektrace {

using Json = nlohmann::ordered_json;

Json to_json(const Amount &amount);
Json to_json(const Totals &totals);
Json to_json(const Numbers &numbers);
Json to_json(const SourceFrame &frame);
Json to_json(const std::vector<SourceFrame> &frames);

/** Writes the members of a JSON object, a line each, and the elements of lists a line each: reports
 *  can be compared by line, and never exist a second time as a tree of JSON values. Bytes that are
 *  no UTF-8 become U+FFFD. */
class JsonWriter {
public:
    void member(const char *key, const Json &value);
    void begin_list(const char *key);
    void element(const Json &value);
    void end_list();
    std::string finish();

private:
    void begin(const char *key);

    std::string text_ = "{";
    const char *separator_ = "\n";
};

} // namespace vektrace

#endif
