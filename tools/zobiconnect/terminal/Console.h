#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

namespace zobi::tool {

/// What the tool's process ends with.
enum ExitStatus : int { success = 0, failure = 1, usage = 2 };

/// A mistake of the user's, on the command line or in a file that it names.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// What was asked for did not happen. Its message is the one line that says why.
class Failure : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The reader of stdout has closed the pipe.
class OutputClosed : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The text with its control characters written as "\x0A", so that none of them reaches a terminal. So are
/// all bytes beyond ASCII in a text that is not UTF-8.
std::string printable(std::string_view text);

/// The same with all bytes beyond ASCII written so: for a live screen, where each byte takes one column.
std::string printableASCII(std::string_view text);

/// Writes to stdout, whose buffer keeps it until `flushOut` or until it is full.
/// @throws OutputClosed when nobody reads it, std::system_error when it cannot be written otherwise.
void printOut(std::string_view text);

/// Throws as `printOut` does, also for what was to be written before.
void flushOut();

/// One line on stderr, if that is a terminal without a live screen: what is being done.
void tellProgress(std::string_view message);

/// A message of the library's on stderr, under the tool's name. While a live screen is on that terminal it
/// waits for `tellWaitingMessages`; of many, the last stay.
void tellMessage(std::string_view message);

/// A live screen has been given back.
void tellWaitingMessages();

/// One line on stderr, under the tool's name, after what was printed.
void complain(std::string_view message);

}  // namespace zobi::tool
