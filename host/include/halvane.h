// What the geometry library needs of the engine core, Halvane: its logger and
// its table of named variables. The engine ships the real implementation; the
// korvex_host library is a small stand-in with the same interface, used by the
// tests, the tools and the examples.
#pragma once

#include <functional>
#include <string>
#include <unordered_map>

#if defined(HALVANE_BUILDING)
#define HALVANE_API __attribute__((visibility("default")))
#else
#define HALVANE_API
#endif

// Writes one message per call. The stand-in writes each message as one line to
// standard error unless a sink has been installed with SetSink.
template <typename T> class HALVANE_API Logger {
  public:
    using Sink = std::function<void(const std::string& line)>;

    // The label followed directly by the number, as std::ostream prints a
    // double by default: Info("Input edge count: ", 3) gives "Input edge count: 3".
    void Info(const std::string& label, T value);
    // The text unchanged, byte for byte.
    void String(const std::string& text);

    // Replaces where the lines go; an empty sink restores standard error.
    void SetSink(Sink sink);

  private:
    void Write(const std::string& line);
    Sink sink_;
};

extern template class Logger<double>;

// The engine's one logger.
extern HALVANE_API Logger<double> LOG;

// One entry of the engine's variable table. `data` points at the variable's
// storage; its type is known to whoever registered and whoever reads it.
struct RegisteredVar {
    void* data;
};

// The engine's table of named variables, keyed by name.
HALVANE_API std::unordered_map<std::string, RegisteredVar>& GetVarRegistry();
