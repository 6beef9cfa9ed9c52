#ifndef KEL_PTRINTERFACE_H
#define KEL_PTRINTERFACE_H

#include <cstddef>
#include <cstdint>

namespace Kel {

// Switches every reference-count change between atomic read-modify-write and plain arithmetic.
struct VFPtrInterface {
  static bool enableThreadSafePointers;
};

// The base of every reference-counted object; Kel.h states the reference word's contract.
class PtrInterface {
 public:
  static constexpr std::uint32_t kCountMask = 0x5FFFFFFFu;
  static constexpr std::uint32_t kNotificationActiveBit = 0x20000000u;
  static constexpr std::uint32_t kZombieBit = 0x80000000u;

  PtrInterface(const PtrInterface&) = delete;
  PtrInterface& operator=(const PtrInterface&) = delete;

  // Inline: every pointer copy pays for these, and with thread-safe pointers off they are one add.
  void newRef() const {
    if (VFPtrInterface::enableThreadSafePointers) return atomicAdd(1);
    ++referenceWord_;
  }
  void deleteRef() const {
    if ((decrement() & kCountMask) == 0) handleZeroRef();
  }
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
  // An object is born holding one reference, which allocate hands to its result: a Ptr to the
  // object taken and dropped while it is being built must not bring its count to zero.
  PtrInterface() = default;
  virtual ~PtrInterface() = default;
  void zombieBitIs(bool zombie) { flagBitIs(kZombieBit, zombie); }
  void flagBitIs(std::uint32_t bit, bool set);

 private:
  std::uint32_t word() const;
  void atomicAdd(std::uint32_t n) const;
  // Returns the word after the decrement.
  std::uint32_t decrement() const {
    return VFPtrInterface::enableThreadSafePointers ? atomicDecrement() : --referenceWord_;
  }
  std::uint32_t atomicDecrement() const;
  mutable std::uint32_t referenceWord_ = 1;
};

}  // namespace Kel

#endif
