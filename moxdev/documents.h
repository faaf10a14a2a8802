// The answers of the moxdev command's verbs as JSON documents: the command
// prints them for --json and the Python module hands them over as dicts and
// lists, so both say the same, key for key.
//
// Conventions shared by every document:
//   - field names are those of the records (device and flash record fields,
//     HPS parameter and word names);
//   - numbers are JSON numbers, flags JSON bools, a missing value is null;
//   - a catalogue or option value is the number under the field's own name,
//     with its identifier beside it under "<field>_name";
//   - a list of records is an array of objects, each with "index" (the
//     number the text form shows) and "record"; a reference to a record
//     elsewhere is "record_index";
//   - objects keep the order of the record or of the text form.
//
// A query that has no answer throws QUERY_ERROR: the message is the
// sentence the command prints after "moxdev: ", the kind says whether the
// input was malformed or named nothing known. Damaged build products still
// raise the managers' internal errors.
#pragma once

#include <nlohmann/json.hpp>

#include <functional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace moxdev {

using DOCUMENT = nlohmann::ordered_json;

enum class QUERY_FAILURE {
    NOT_FOUND,     // the input is well formed but names nothing known
    INVALID_INPUT, // the input is malformed (not a size, not hex bytes, ...)
    UNAVAILABLE,   // a database or file the query needs cannot be read
};

class QUERY_ERROR : public std::runtime_error {
public:
    QUERY_ERROR(QUERY_FAILURE kind, const std::string& message, std::vector<std::string> suggestions = {})
        : std::runtime_error(message), m_kind(kind), m_suggestions(std::move(suggestions))
    {}
    QUERY_FAILURE kind() const { return m_kind; }
    // The known names closest to what was typed, when the message offers some.
    const std::vector<std::string>& suggestions() const { return m_suggestions; }

private:
    QUERY_FAILURE m_kind;
    std::vector<std::string> m_suggestions;
};

// Where a query sends what it tells a person beside its answer: a name
// resolved to another ("W25Q128.V is W25Q128JV here"), or a warning
// ("warning: ..."). The command prints these on standard error.
using NOTE_SINK = std::function<void(const std::string& text)>;

} // namespace moxdev
