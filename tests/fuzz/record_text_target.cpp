// Records as an operator types them: an assignment is refused as wrong usage, or makes a record that is the
// same after it was printed and typed again.
//
// Input: a record type's name, then an assignment on each line.
#include "cgctl/record_text.h"

#include "cgctl/failure.h"
#include "cgctl/text.h"

#include "fuzz.h"

namespace
{

using cgctl::Json;
using cgctl::RecordType;
using fuzz::require;

// Runs the action; false when it is refused.
template <typename Action>
bool accepted(const Action &action)
{
    try {
        action();
        return true;
    } catch (const cgctl::Failure &failure) {
        const std::string text = failure.what();
        require(failure.status() == cgctl::wrong_usage && !text.empty(), "a refusal is for wrong usage");
        require(cgctl::visible(text) == text, "a refusal is one line", text);
        return false;
    }
}

// What in_quotes() made of a text, undone.
std::string without_quotes(std::string_view quoted)
{
    std::string text;
    for (size_t i = 1; i + 1 < quoted.size(); ++i) {
        if (quoted[i] != '\\') {
            text += quoted[i];
            continue;
        }
        const char what = quoted[++i];
        if (what == 'x') {
            text += fuzz::bytes_of('%' + std::string(quoted.substr(i + 1, 2)));
            i += 2;
        } else {
            text += what == 'n' ? '\n' : what == 'r' ? '\r' : what == 't' ? '\t' : what;
        }
    }
    return text;
}

// A printed line as it would be typed.
std::string typed(const std::string &line)
{
    const size_t equals = line.find('=');
    require(equals != std::string::npos, "a line is an assignment", line);
    return line[equals + 1] == '"' ? line.substr(0, equals + 1) + without_quotes(line.substr(equals + 1))
                                   : line;
}

Json record_of(const RecordType &type, const Json &fields)
{
    return cgctl::to_json(*cgctl::from_json(*type.descriptor, fields));
}

void check(const RecordType &type, const Json &fields)
{
    const Json record = record_of(type, fields);
    require(record_of(type, record) == record, "a record is the same after a way through JSON",
            cgctl::dump(record));
    require(record_of(type, Json::parse(cgctl::dump(record))) == record, "and through its text",
            cgctl::dump(record));
    Json again = Json::object();
    for (const std::string &line : cgctl::to_lines(*type.descriptor, record, cgctl::Shown::all)) {
        require(cgctl::visible(line) == line, "a line is one line", line);
        require(accepted([&] { cgctl::assign(type, again, typed(line)); }), "a line can be typed", line);
    }
    require(record_of(type, again) == record, "a record is the same after it was typed again",
            cgctl::dump(record));
    Json parts = cgctl::payload_part(type, record);
    if (type.index != nullptr && !record[type.index->name].is_null()) {
        parts[type.index->name] = cgctl::key_part(type, record);
    }
    require(record_of(type, parts) == record, "key and payload are the record", cgctl::dump(record));
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::vector<std::string> lines = fuzz::parts_of(fuzz::view_of(data, size), '\n');
    const RecordType *type = nullptr;
    if (!accepted([&] { type = &cgctl::record_type(fuzz::c_text(lines.front())); })) {
        // Most changes to the name spoil it; the assignments below it are tried all the same.
        const std::vector<RecordType> &types = cgctl::record_types();
        type = &types[lines.front().size() % types.size()];
    }
    Json fields = Json::object();
    for (size_t i = 1; i < lines.size(); ++i) {
        const std::string assignment = fuzz::c_text(lines[i]);
        Json changed = fields;
        // A refused one may leave a part of its path behind; the command ends there.
        if (accepted([&] { cgctl::assign(*type, changed, assignment); })) {
            fields = changed;
            require(accepted([&] { (void)cgctl::field_number(*type, assignment); }),
                    "an assignment has a field", assignment);
        }
    }
    check(*type, fields);
    return 0;
}
