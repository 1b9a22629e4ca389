#include "kit/cout_buffer.h"

#include <exception>
#include <iostream>
#include <mutex>
#include <utility>

namespace kit {

namespace {
constinit std::mutex coutMutex;
}

CoutBuffer::~CoutBuffer() {
    try {
        Flush();
    } catch (const std::exception&) {
        // std::cout was told to throw; a destructor has nobody to tell.
    }
}

void CoutBuffer::Flush() {
    const std::string text = std::move(stream_).str();
    stream_.str({});
    if (text.empty()) return;
    const std::lock_guard lock(coutMutex);
    std::cout.write(text.data(), static_cast<std::streamsize>(text.size()));
    std::cout.flush();
}

CoutBuffer& CoutBuffer::operator<<(std::ostream& (*manipulator)(std::ostream&)) {
    stream_ << manipulator;
    return *this;
}

CoutBuffer& CoutBuffer::operator<<(std::ios_base& (*manipulator)(std::ios_base&)) {
    stream_ << manipulator;
    return *this;
}

CoutBuffer& endl(CoutBuffer& buffer) {
    buffer.Stream() << '\n';
    buffer.Flush();
    return buffer;
}

}  // namespace kit
