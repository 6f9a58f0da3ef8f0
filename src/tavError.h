#pragma once

#include <stdexcept>
#include <string>

/// `what` and the text of errno.
std::string errnoText(const char* what);

/// Common shape of the agent's error classes: where it was raised and the complete text.
class TavError : public std::logic_error {
  public:
    /// Composes "Error: MESSAGE(FILE,LINE)" and a newline.
    TavError(const std::string& message, const std::string& file, const unsigned& line);

    /// The complete text.
    const char* what() const noexcept override { return errmsg.c_str(); }

    std::string fi;     ///< source file of the throw
    unsigned int li{0}; ///< source line of the throw
    std::string errmsg; ///< complete text

  protected:
    /// The number's digits overwrite the start of the message: "reply message has wrong type: "
    /// with 2 reads "2eply message has wrong type: ". Nothing else is added.
    TavError(const std::string& message, const std::string& file, const unsigned& line,
             const int& number);
};
