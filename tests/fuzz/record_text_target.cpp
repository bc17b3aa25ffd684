// Records as an operator types them: an assignment is refused as wrong usage, or makes a record that is the
// same after it was printed and typed again.
//
// Input: a record type's name, then an assignment on each line.
#include "records/record_text.h"

#include "base/failure.h"
#include "base/text.h"

#include "fuzz.h"

namespace
{

using cg::Json;
using cg::RecordType;
using fuzz::require;

// Runs the action; false when it is refused.
template <typename Action>
bool accepted(const Action &action)
{
    try {
        action();
        return true;
    } catch (const cg::Failure &failure) {
        const std::string text = failure.what();
        require(failure.status() == cg::wrong_usage && !text.empty(), "a refusal is for wrong usage");
        require(cg::visible(text) == text, "a refusal is one line", text);
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
    return cg::to_json(*cg::from_json(*type.descriptor, fields));
}

void check(const RecordType &type, const Json &fields)
{
    const Json record = record_of(type, fields);
    require(record_of(type, record) == record, "a record is the same after a way through JSON",
            cg::dump(record));
    require(record_of(type, Json::parse(cg::dump(record))) == record, "and through its text",
            cg::dump(record));
    Json again = Json::object();
    for (const std::string &line : cg::to_lines(*type.descriptor, record, cg::Shown::all)) {
        require(cg::visible(line) == line, "a line is one line", line);
        require(accepted([&] { cg::assign(type, again, typed(line)); }), "a line can be typed", line);
    }
    require(record_of(type, again) == record, "a record is the same after it was typed again",
            cg::dump(record));
    Json parts = cg::payload_part(type, record);
    if (type.index != nullptr && !record[type.index->name].is_null()) {
        parts[type.index->name] = cg::key_part(type, record);
    }
    require(record_of(type, parts) == record, "key and payload are the record", cg::dump(record));
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::vector<std::string> lines = fuzz::parts_of(fuzz::view_of(data, size), '\n');
    const RecordType *type = nullptr;
    if (!accepted([&] { type = &cg::record_type(fuzz::c_text(lines.front())); })) {
        // Most changes to the name spoil it; the assignments below it are tried all the same.
        const std::vector<RecordType> &types = cg::record_types();
        type = &types[lines.front().size() % types.size()];
    }
    Json fields = Json::object();
    for (size_t i = 1; i < lines.size(); ++i) {
        const std::string assignment = fuzz::c_text(lines[i]);
        Json changed = fields;
        // A refused one may leave a part of its path behind; the command ends there.
        if (accepted([&] { cg::assign(*type, changed, assignment); })) {
            fields = changed;
            require(accepted([&] { (void)cg::field_number(*type, assignment); }), "an assignment has a field",
                    assignment);
        }
    }
    check(*type, fields);
    return 0;
}
