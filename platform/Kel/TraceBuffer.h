#ifndef KEL_TRACEBUFFER_H
#define KEL_TRACEBUFFER_H

#include <cstddef>
#include <streambuf>
#include <string>
#include <string_view>

namespace Kel {

// The stream buffer behind a trace message: text goes straight into storage that is kept from one
// message to the next, so a warmed-up thread formats traces without allocating.
class TraceBuffer : public std::streambuf {
 public:
  static constexpr std::size_t kInitialCapacity = 256;
  // A buffer that grew past this for one huge message gives the memory back afterwards.
  static constexpr std::size_t kRetainedCapacity = 64 * 1024;

  TraceBuffer();
  TraceBuffer(const TraceBuffer&) = delete;
  TraceBuffer& operator=(const TraceBuffer&) = delete;

  std::string_view text() const {
    return std::string_view(pbase(), static_cast<std::size_t>(pptr() - pbase()));
  }
  std::size_t capacity() const { return storage_.size(); }
  void clear();
  void trim();

 protected:
  int_type overflow(int_type c) override;
  std::streamsize xsputn(const char* text, std::streamsize count) override;

 private:
  void reserve(std::size_t needed);
  void advance(std::size_t count);

  // Its size is the capacity; the put area spans all of it.
  std::string storage_;
};

}  // namespace Kel

#endif
