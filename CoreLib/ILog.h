// ILog.h: a string stream for building a debug message with stream operators.
#pragma once

#include <ios>
#include <ostream>
#include <sstream>

namespace zn {

class ILog : public std::basic_stringstream<char> {
public:
    ILog() = default;

    ILog& operator<<(short value) { return Put(value); }
    ILog& operator<<(unsigned short value) { return Put(value); }
    ILog& operator<<(int value) { return Put(value); }
    ILog& operator<<(unsigned int value) { return Put(value); }
    ILog& operator<<(long value) { return Put(value); }
    ILog& operator<<(unsigned long value) { return Put(value); }
    ILog& operator<<(long long value) { return Put(value); }
    ILog& operator<<(unsigned long long value) { return Put(value); }
    ILog& operator<<(float value) { return Put(value); }
    ILog& operator<<(double value) { return Put(value); }
    ILog& operator<<(long double value) { return Put(value); }
    ILog& operator<<(char* value) { return Put(static_cast<const char*>(value)); }
    ILog& operator<<(const char* value) { return Put(value); }
    ILog& operator<<(std::ostream& (*manipulator)(std::ostream&)) { return Put(manipulator); }
    ILog& operator<<(std::ios& (*manipulator)(std::ios&)) { return Put(manipulator); }
    ILog& operator<<(std::ios_base& (*manipulator)(std::ios_base&)) { return Put(manipulator); }

    // Sends the text built so far to the debug output and clears the error state. The text stays,
    // so a second Flush sends it again.
    void Flush();

private:
    template <typename T>
    ILog& Put(T value) {
        static_cast<std::ostream&>(*this) << value;
        return *this;
    }
};

}  // namespace zn
