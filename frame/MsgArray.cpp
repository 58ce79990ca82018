// The array pattern: what every array class does through the virtual
// interface of CMsgBase_Array, and the slot arrays of MsgPattern.h.
#include <cstring>

#include "FrameText.h"
#include "MsgBase.h"
#include "MsgPattern.h"

CMsgBase_Array::~CMsgBase_Array() = default;

namespace pricemsg::detail {

int OutOfMemory(CMsgBase_Array& self) {
  FailText(self.errtext, kArrayNoMemoryText, self.msgname.ToStr());
  return MSG_E_NOMEM;
}

int LoadArray(CMsgBase_Array& self, CMsgArray* arr) {
  if (!arr) return MSG_E_NULL;
  // A count below zero from the runtime is no count of messages: none.
  int count = arr->GetSize();
  int rc = self.SetSize(count < 0 ? 0 : count);
  if (rc < 0) return rc;
  for (int i = 0; i < self.GetSize(); ++i) {
    rc = self.GetAt(i)->Load(arr->GetAt(i));
    if (rc < 0) return rc;
  }
  return 0;
}

CMsg* ElementToMsg(CMsgBase_Array& self, int index) {
  CMsgBase* element = self.GetAt(index);
  return element ? element->ToMsg() : nullptr;
}

// The loops below stop at the first index without an element: past it, a
// failed SetSize made none, and its size may be far above what exists.

void DumpArray(const CMsgBase_Array& self, CStream* out, const char* className,
               Walk walk) noexcept {
  TextSink sink(out);
  try {
    const size_t nameLen = std::strlen(className);
    for (int i = 0; const CMsgBase* element = self.GetAt(i); ++i) {
      // "\n<className> [i]"
      sink.Line();
      sink.Put(className, nameLen);
      sink.Put(" [", 2);
      sink.PutInt(i);
      sink.Put("]", 1);
      DumpObject(sink, *element, walk);
    }
    sink.Flush();
  } catch (...) {
    FlushQuietly(sink);
  }
}

void CopyArray(CMsgBase_Array& self, const CMsgBase_Array& src, Walk walk) {
  if (&self == &src) return;
  int n = 0;
  while (src.GetAt(n)) ++n;
  if (self.SetSize(n) < 0) return;
  for (int i = 0; i < n; ++i) Copy(*self.GetAt(i), *src.GetAt(i), walk);
}

void DeleteElements(CMsgBase_Array& self) {
  for (int i = 0; CMsgBase* element = self.GetAt(i); ++i) delete element;
}

namespace {

// What stands in front of slot 0 in a slot array's block.
struct alignas(void*) SlotHeader {
  size_t room;  // slots in the block
};
static_assert(sizeof(SlotHeader) == sizeof(size_t) && sizeof(SlotHeader) % sizeof(void*) == 0,
              "slot 0 follows the header directly and is aligned for a pointer");

SlotHeader* HeaderOf(void* slots) { return static_cast<SlotHeader*>(slots) - 1; }

// A block with room for `room` null slots; `room` is at most kMaxSlots.
void* Allocate(size_t room) noexcept {
  const size_t bytes = room * sizeof(void*);
  void* block;
  try {
    block = ::operator new(sizeof(SlotHeader) + bytes);
  } catch (...) {
    return nullptr;
  }
  SlotHeader* header = static_cast<SlotHeader*>(block);
  header->room = room;
  std::memset(header + 1, 0, bytes);
  return header + 1;
}

}  // namespace

void* NewSlots(int n) noexcept {
  if (n <= 0 || n > kMaxSlots) return nullptr;
  return Allocate(static_cast<size_t>(n));
}

void* Enlarge(void* slots, int size, int& capacity) noexcept {
  const int next = NextCapacity(size);
  if (next == 0 || size < 0) return nullptr;  // Grow never asks with a negative size
  if (slots && HeaderOf(slots)->room >= static_cast<size_t>(next)) {
    capacity = next;
    return slots;
  }
  // An eighth more than the size, as the capacity would grow without its
  // cap of 1,024: fewer and fewer moves of the slots as the array grows.
  size_t room = static_cast<size_t>(size) + static_cast<size_t>(size) / 8;
  if (room < static_cast<size_t>(next)) room = static_cast<size_t>(next);
  if (room > static_cast<size_t>(kMaxSlots)) room = static_cast<size_t>(kMaxSlots);
  void* fresh = Allocate(room);
  if (!fresh) return nullptr;
  if (slots && size > 0) std::memcpy(fresh, slots, static_cast<size_t>(size) * sizeof(void*));
  DeleteSlots(slots);
  capacity = next;
  return fresh;
}

void DeleteSlots(void* slots) noexcept {
  if (slots) ::operator delete(HeaderOf(slots));
}

void ThrowNoElement(const char* className, int index, int size) {
  if (index >= 0 && index < size) {
    throw CException(
        CFormat("%s::[] element %d of %d was never made (out of memory)", className, index, size)
            .ToStr(),
        MSG_E_NOMEM);
  }
  throw CException(CFormat("%s::[] out of index (0 <= %d < %d)", className, index, size).ToStr(),
                   MSG_E_INDEX);
}

}  // namespace pricemsg::detail
