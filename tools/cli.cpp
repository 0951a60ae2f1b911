#include "cli.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <sstream>

namespace cli {

Args::Args(const std::vector<std::string>& argv, const std::vector<OptionSpec>& options) {
    for (size_t i = 0; i < argv.size(); ++i) {
        const std::string& word = argv[i];
        if (word.size() < 2 || word[0] != '-' || (word[1] != '-' && std::isdigit(word[1]))) {
            positional_.push_back(word); // negative numbers are values, not options
            continue;
        }
        std::string name = word, inlineValue;
        bool hasInline = false;
        if (const size_t eq = word.find('='); eq != std::string::npos) {
            name = word.substr(0, eq);
            inlineValue = word.substr(eq + 1);
            hasInline = true;
        }
        const OptionSpec* option = nullptr;
        for (const OptionSpec& o : options)
            if (o.name == name) option = &o;
        if (!option) throw UsageError("unknown option " + name + " (see --help)");
        if (!option->takesValue) {
            if (hasInline) throw UsageError("option " + name + " takes no value");
            values_[name] = "";
        } else if (hasInline) {
            values_[name] = inlineValue;
        } else {
            if (i + 1 >= argv.size()) throw UsageError("option " + name + " needs a value");
            values_[name] = argv[++i];
        }
    }
}

std::optional<std::string> Args::value(const std::string& name) const {
    auto it = values_.find(name);
    if (it == values_.end()) return std::nullopt;
    return it->second;
}

std::string Args::text(const std::string& name, const std::string& fallback) const {
    return value(name).value_or(fallback);
}

float Args::number(const std::string& name, float fallback) const {
    auto v = value(name);
    return v ? parseNumber(*v, name) : fallback;
}

int Args::integer(const std::string& name, int fallback) const {
    auto v = value(name);
    return v ? parseInteger(*v, name) : fallback;
}

std::optional<vec3> Args::vector3(const std::string& name) const {
    auto v = value(name);
    if (!v) return std::nullopt;
    auto n = parseNumbers(*v, 3, name);
    return vec3(n[0], n[1], n[2]);
}

std::optional<vec2> Args::vector2(const std::string& name) const {
    auto v = value(name);
    if (!v) return std::nullopt;
    auto n = parseNumbers(*v, 2, name);
    return vec2(n[0], n[1]);
}

void Args::expectPositional(size_t least, size_t most) const {
    if (positional_.size() < least) throw UsageError("missing argument (see --help)");
    if (positional_.size() > most)
        throw UsageError("unexpected argument '" + positional_[most] + "' (see --help)");
}

float parseNumber(const std::string& text, const std::string& what) {
    char* end = nullptr;
    const float v = std::strtof(text.c_str(), &end);
    if (text.empty() || *end != '\0' || !std::isfinite(v))
        throw UsageError(what + ": '" + text + "' is not a finite number");
    return v;
}

int parseInteger(const std::string& text, const std::string& what) {
    char* end = nullptr;
    const long v = std::strtol(text.c_str(), &end, 10);
    if (text.empty() || *end != '\0' || v < -2147483647L || v > 2147483647L)
        throw UsageError(what + ": '" + text + "' is not a whole number");
    return static_cast<int>(v);
}

std::vector<float> parseNumbers(const std::string& text, size_t count, const std::string& what) {
    std::string spaced = text;
    for (char& c : spaced)
        if (c == ',') c = ' ';
    std::istringstream in(spaced);
    std::vector<float> out;
    std::string word;
    while (in >> word) out.push_back(parseNumber(word, what));
    if (out.size() != count)
        throw UsageError(what + ": expected " + std::to_string(count) + " numbers, got '" + text +
                         "'");
    return out;
}

static std::map<std::string, Command>& registry() {
    static std::map<std::string, Command> table;
    return table;
}

Registrar::Registrar(Command command) {
    registry()[command.name] = std::move(command);
}

const std::map<std::string, Command>& commands() {
    return registry();
}

std::string jsonNumber(double v) {
    if (!std::isfinite(v)) return "null";
    char buf[64];
    std::snprintf(buf, sizeof buf, "%.9g", v);
    return buf;
}

std::string jsonVec3(const vec3& v) {
    return "[" + jsonNumber(v.x) + "," + jsonNumber(v.y) + "," + jsonNumber(v.z) + "]";
}

std::string jsonString(const std::string& s) {
    std::string out = "\"";
    for (char c : s) {
        if (c == '"' || c == '\\') {
            out += '\\';
            out += c;
        } else if (static_cast<unsigned char>(c) < 0x20) {
            char buf[8];
            std::snprintf(buf, sizeof buf, "\\u%04x", c);
            out += buf;
        } else {
            out += c;
        }
    }
    return out + "\"";
}

} // namespace cli
