#pragma once

#include <ios>
#include <ostream>
#include <sstream>
#include <string>

namespace kit {

/// Collects text and writes it to std::cout in one piece, so that lines of several threads never mix. One object
/// belongs to one thread; the write is thread-safe. What is left is written by the destructor. To print a type of your
/// own, give it an operator<< for std::ostream or for CoutBuffer.
class CoutBuffer {
public:
    CoutBuffer() = default;
    CoutBuffer(const CoutBuffer&) = delete;
    CoutBuffer& operator=(const CoutBuffer&) = delete;
    ~CoutBuffer();

    /// Writes what was collected and forgets it; formatting such as std::hex stays.
    void Flush();
    /// What was collected and not yet written.
    [[nodiscard]] std::string Text() const { return stream_.str(); }

    /// The stream that collects; for code that can only write to a stream.
    [[nodiscard]] std::ostream& Stream() { return stream_; }

    /// Calls the manipulator: kit::endl ends the line and writes.
    CoutBuffer& operator<<(CoutBuffer& (*manipulator)(CoutBuffer&)) { return manipulator(*this); }
    /// Unlike kit::endl, std::endl only ends the line.
    CoutBuffer& operator<<(std::ostream& (*manipulator)(std::ostream&));
    /// std::hex and its like: in force until changed, whatever is written meanwhile.
    CoutBuffer& operator<<(std::ios_base& (*manipulator)(std::ios_base&));

private:
    std::ostringstream stream_;
};

/// Ends the line and writes what was collected.
CoutBuffer& endl(CoutBuffer& buffer);

/// Collects the value as its operator<< for std::ostream writes it; nothing goes out yet.
template <class T>
CoutBuffer& operator<<(CoutBuffer& buffer, const T& value) {
    buffer.Stream() << value;
    return buffer;
}

/// Lets a line be written by a temporary: `kit::CoutBuffer() << "text" << kit::endl;`
template <class T>
CoutBuffer& operator<<(CoutBuffer&& buffer, const T& value) {
    return buffer << value;
}

}  // namespace kit
