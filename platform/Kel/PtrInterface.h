#ifndef KEL_PTRINTERFACE_H
#define KEL_PTRINTERFACE_H

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace Kel {

// Switches every reference-count change between atomic read-modify-write and plain arithmetic.
// Set it before a second thread touches shared objects; flipping it while counts are changing
// concurrently is a data race by construction.
struct VFPtrInterface {
  static bool enableThreadSafePointers;
};

// The base of every reference-counted object. The object carries one 32-bit word: the count lives
// under kCountMask, bit 29 is the notification-active flag and bit 31 the zombie flag, so flags and
// count change together without a second word.
class PtrInterface {
 public:
  static constexpr std::uint32_t kCountMask = 0x5FFFFFFFu;
  static constexpr std::uint32_t kNotificationActiveBit = 0x20000000u;
  static constexpr std::uint32_t kZombieBit = 0x80000000u;

  PtrInterface() = default;
  PtrInterface(const PtrInterface&) = delete;
  PtrInterface& operator=(const PtrInterface&) = delete;

  void newRef() const;
  void deleteRef() const;
  std::uint32_t references() const { return word() & kCountMask; }
  std::uint32_t referenceWord() const { return word(); }

  bool notificationActive() const { return (word() & kNotificationActiveBit) != 0; }
  bool zombie() const { return (word() & kZombieBit) != 0; }

  // Called by the holder whose release left no references.
  void handleZeroRef() const;

  virtual void maybeDelete();
  virtual void hasNotificationActiveIs(bool active);
  virtual void zeroReferencesIs(bool) {}

  static void* kelMemAlloc(std::size_t size);
  static void kelMemFree(void* memory);

 protected:
  virtual ~PtrInterface() = default;
  void zombieBitIs(bool zombie);
  void flagBitIs(std::uint32_t bit, bool set);

 private:
  std::uint32_t word() const;
  mutable std::uint32_t referenceWord_ = 0;
};

}  // namespace Kel

#endif
