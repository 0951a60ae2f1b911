#include "halvane.h"

#include <iostream>
#include <sstream>

template <typename T> void Logger<T>::Info(const std::string& label, T value) {
    std::ostringstream out;
    out << label << value;
    Write(out.str());
}

template <typename T> void Logger<T>::String(const std::string& text) {
    Write(text);
}

template <typename T> void Logger<T>::SetSink(Sink sink) {
    sink_ = std::move(sink);
}

template <typename T> void Logger<T>::Write(const std::string& line) {
    if (sink_) {
        sink_(line);
        return;
    }
    std::cerr.write(line.data(), static_cast<std::streamsize>(line.size()));
    std::cerr.put('\n');
    std::cerr.flush();
}

template class Logger<double>;

Logger<double> LOG;

std::unordered_map<std::string, RegisteredVar>& GetVarRegistry() {
    static std::unordered_map<std::string, RegisteredVar> registry;
    return registry;
}
