#pragma once
// Where a command's results go. The command line collects standard output and hands
// it over only once the command's effects are recorded, so that a command whose
// effect could not be recorded prints no result; a server mode collects both streams
// into its reply instead.
#include <string>
#include <string_view>

namespace tavlin::runtime {

class Output {
 public:
  virtual ~Output() = default;
  virtual void standardOutput(std::string_view bytes) = 0;
  virtual void standardError(std::string_view bytes) = 0;
};

// Keeps both streams in memory until the caller takes them.
class BufferedOutput final : public Output {
 public:
  void standardOutput(std::string_view bytes) override { out_.append(bytes); }
  void standardError(std::string_view bytes) override { err_.append(bytes); }
  const std::string& out() const { return out_; }
  const std::string& err() const { return err_; }
  void discardOutput() { out_.clear(); }

 private:
  std::string out_;
  std::string err_;
};

// Writes all bytes to a descriptor, retrying short and interrupted writes. False (with
// errno set) when the descriptor takes no more: a full disk, a closed pipe.
bool writeAll(int descriptor, std::string_view bytes);

}  // namespace tavlin::runtime
