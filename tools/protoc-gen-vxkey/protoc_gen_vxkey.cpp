// protoc-gen-vxkey: writes the schemas' key attributes, and the list of their messages, as C code.
//
// protobuf-c drops custom options, so what vx_key.attr says would be lost. A hand-kept table beside the
// schemas was the alternative; it would be wrong after the first change that forgets it. A field without
// the attribute is an error of the schema and fails the build.

#include <google/protobuf/compiler/code_generator.h>
#include <google/protobuf/compiler/plugin.h>
#include <google/protobuf/descriptor.h>
#include <google/protobuf/descriptor.pb.h>
#include <google/protobuf/io/printer.h>
#include <google/protobuf/io/zero_copy_stream.h>
#include <google/protobuf/unknown_field_set.h>

#include <cctype>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace
{

namespace pb = google::protobuf;

// protobuf-c's name of a type: CamelCase is split with underscores, parts are joined by two of them.
std::string c_name(const std::string &full_name)
{
    std::string name;
    for (std::size_t i = 0; i < full_name.size(); ++i) {
        const auto character = static_cast<unsigned char>(full_name[i]);
        if (character == '.') {
            name += "__";
        } else if (std::isupper(character) != 0) {
            if (i != 0 && full_name[i - 1] != '.' && full_name[i - 1] != '_') {
                name += '_';
            }
            name += static_cast<char>(std::tolower(character));
        } else {
            name += static_cast<char>(character);
        }
    }
    return name;
}

// The option reaches a plugin as an unknown field of the options, since it is not compiled in here.
std::optional<int> key_attribute(const pb::FieldDescriptor &field)
{
    const pb::FieldDescriptor *option = field.file()->pool()->FindExtensionByName("vx_key.attr");
    if (option == nullptr) {
        return std::nullopt;
    }
    const pb::FieldOptions &options = field.options();
    const pb::UnknownFieldSet &unknown = options.GetReflection()->GetUnknownFields(options);
    for (int i = 0; i < unknown.field_count(); ++i) {
        const pb::UnknownField &entry = unknown.field(i);
        if (entry.number() == option->number() && entry.type() == pb::UnknownField::TYPE_VARINT) {
            return static_cast<int>(entry.varint());
        }
    }
    return std::nullopt;
}

class KeyTableGenerator : public pb::compiler::CodeGenerator
{
public:
    [[nodiscard]] uint64_t GetSupportedFeatures() const override { return FEATURE_PROTO3_OPTIONAL; }

    bool Generate(const pb::FileDescriptor *file, const std::string &parameter,
                  pb::compiler::GeneratorContext *context, std::string *error) const override
    {
        return GenerateAll({file}, parameter, context, error);
    }

    bool GenerateAll(const std::vector<const pb::FileDescriptor *> &files, const std::string & /*parameter*/,
                     pb::compiler::GeneratorContext *context, std::string *error) const override
    {
        const std::unique_ptr<pb::io::ZeroCopyOutputStream> stream(context->Open("vx_mom_schema_table.h"));
        pb::io::Printer printer(stream.get(), '$');
        printer.Print("/* Generated from the schemas by protoc-gen-vxkey. Do not edit. */\n");
        for (const pb::FileDescriptor *file : files) {
            std::string stem = file->name();
            stem.resize(stem.rfind(".proto"));
            printer.Print("#include \"$stem$.pb-c.h\"\n", "stem", stem);
        }
        std::string messages;
        for (const pb::FileDescriptor *file : files) {
            for (int i = 0; i < file->message_type_count(); ++i) {
                if (!write_fields(*file->message_type(i), printer, messages, error)) {
                    return false;
                }
            }
        }
        printer.Print("\nstatic const struct key_message key_messages[] = {\n");
        printer.PrintRaw(messages);
        printer.Print("};\n");
        return true;
    }

private:
    static bool write_fields(const pb::Descriptor &message, pb::io::Printer &printer, std::string &messages,
                             std::string *error)
    {
        if (message.nested_type_count() != 0 || message.field_count() == 0) {
            *error = message.full_name() + ": nested messages and empty ones are not supported";
            return false;
        }
        const std::string name = c_name(message.full_name());
        printer.Print("\nstatic const struct key_field $name$_keys[] = {\n", "name", name);
        for (int i = 0; i < message.field_count(); ++i) {
            const pb::FieldDescriptor &field = *message.field(i);
            const std::optional<int> attribute = key_attribute(field);
            if (!attribute || *attribute < 0 || *attribute > 2) {
                *error = field.full_name() + ": wants a key attribute, [(vx_key.attr) = 0], 1 or 2";
                return false;
            }
            printer.Print("    {$number$, $attribute$}, /* $field$ */\n", "number",
                          std::to_string(field.number()), "attribute", std::to_string(*attribute), "field",
                          field.name());
        }
        printer.Print("};\n");
        messages += "    {&" + name + "__descriptor, " + name + "_keys, sizeof " + name + "_keys / sizeof " +
                    name + "_keys[0]},\n";
        return true;
    }
};

} // namespace

int main(int argc, char **argv)
{
    const KeyTableGenerator generator;
    return pb::compiler::PluginMain(argc, argv, &generator);
}
