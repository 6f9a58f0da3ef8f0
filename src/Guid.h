#pragma once

#include <string>

/// A 16-byte globally unique identifier, kept in stored order, with its text form.
class Guid {
  public:
    /// All zero.
    Guid();
    /// Takes 16 bytes as they are.
    explicit Guid(const unsigned char* bytes);
    Guid(const Guid& other) = default;
    ~Guid() = default;

    Guid& operator=(const Guid& other);
    /// Takes 16 bytes as they are.
    Guid& operator=(const unsigned char* bytes);
    /// Sets every byte to `byte`.
    Guid& operator=(unsigned char byte);

    /// Upper-case hex in groups of 4, 2, 2, 2 and 6 bytes, none of them reordered.
    operator std::string() const { return retstr; }
    operator const char*() const noexcept { return retstr.c_str(); }
    /// True unless all zero.
    operator bool() const noexcept;
    bool operator==(const Guid& other) const noexcept;

    /// Rebuilds the text from the bytes.
    void buildString();

    unsigned char ch[16];
    std::string retstr;
};
