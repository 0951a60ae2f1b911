// Small command-line frame of the korvex tool: subcommands register
// themselves, options are declared per command, and every user error becomes
// one line on standard error with exit code 2.
#pragma once

#include <korvex/records.h>

#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace cli {

// A mistake of the user's: bad arguments, unreadable or unwritable files.
struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct OptionSpec {
    std::string name; // with the leading dashes, e.g. "--json"
    bool takesValue;
    std::string help; // one line; for valued options starts with the value's name
};

class Args {
  public:
    Args(const std::vector<std::string>& argv, const std::vector<OptionSpec>& options);

    bool has(const std::string& name) const { return values_.count(name) != 0; }
    std::optional<std::string> value(const std::string& name) const;
    std::string text(const std::string& name, const std::string& fallback) const;
    float number(const std::string& name, float fallback) const;
    int integer(const std::string& name, int fallback) const;
    std::optional<vec3> vector3(const std::string& name) const;
    std::optional<vec2> vector2(const std::string& name) const;
    const std::vector<std::string>& positional() const { return positional_; }
    // Throws unless the positional count lies in [least, most].
    void expectPositional(size_t least, size_t most) const;

  private:
    std::map<std::string, std::string> values_;
    std::vector<std::string> positional_;
};

float parseNumber(const std::string& text, const std::string& what);
int parseInteger(const std::string& text, const std::string& what);
// "x,y,z" (commas or spaces) into exactly `count` numbers.
std::vector<float> parseNumbers(const std::string& text, size_t count, const std::string& what);

struct Command {
    std::string name;
    std::string summary;
    std::string usage; // the line after "usage: korvex "
    std::vector<OptionSpec> options;
    int (*run)(const Args& args);
};

// Called from a static object in each command's source file.
struct Registrar {
    explicit Registrar(Command command);
};

const std::map<std::string, Command>& commands();

// Minimal JSON writing for --json output.
std::string jsonNumber(double v);
std::string jsonVec3(const vec3& v);
std::string jsonString(const std::string& s);

} // namespace cli
