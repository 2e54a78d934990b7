// A program with MSVC's ABI: clang compiles it for x86_64-pc-windows-msvc against the public
// header, so every call names its function as MSVC decorates it, and lld-link links it against
// trdcomp.lib, the import library made for MSVC's linker. No C++ runtime: it starts at
// mainCRTStartup and uses a few functions of the system's msvcrt.dll.
//
// Run under Wine against the mingw-built DLL, it makes objects of the classes as MSVC programs do
// (on the stack, as members, with new and delete, derived from the helper and copied), with an
// operator new that allocates as MSVC's C runtime does (HeapAlloc on the process heap), and packs
// and restores requests through them in both codecs, into a new buffer and into its own, checking
// that the records come back.
#include "TrdCompData.h"

using Size = decltype(sizeof 0);

extern "C" {
__declspec(dllimport) int printf(const char*, ...);
__declspec(dllimport) int fflush(void*);
__declspec(dllimport) int memcmp(const void*, const void*, Size);

// Process heap entries as HeapWalk fills them.
struct HeapEntry {
  void* data;
  unsigned long size;
  unsigned char overhead, region;
  unsigned short flags;
  unsigned char rest[24];
};
__declspec(dllimport) void* GetProcessHeap();
__declspec(dllimport) void* HeapAlloc(void* heap, unsigned long flags, Size size);
__declspec(dllimport) int HeapFree(void* heap, unsigned long flags, void* block);
__declspec(dllimport) int HeapValidate(void* heap, unsigned long flags, const void* block);
__declspec(dllimport) int HeapWalk(void* heap, HeapEntry* entry);

// The DLL's MSVC special members and vtables, by their decorated names, to call them directly.
__declspec(dllimport) void* dataConstruct(void* self) asm("??0CTrdCompData@@QEAA@XZ");
__declspec(dllimport) void* helperConstruct(void* self) asm("??0CKtNetCompressHelper@@IEAA@XZ");
__declspec(dllimport) void* helperCopy(void* self, const void* from) asm(
    "??0CKtNetCompressHelper@@QEAA@AEBV0@@Z");
__declspec(dllimport) void* helperAssign(void* self, const void* from) asm(
    "??4CKtNetCompressHelper@@QEAAAEAV0@AEBV0@@Z");
__declspec(dllimport) extern void* const dataVtable[] asm("??_7CTrdCompData@@6B@");
__declspec(dllimport) extern void* const helperVtable[] asm("??_7CKtNetCompressHelper@@6B@");
}

// MSVC's operator new and delete, as the C runtime has them; calls are counted.
int callerDeletes = 0;
void* operator new(Size size) {
  return HeapAlloc(GetProcessHeap(), 0, size ? size : 1);
}
void operator delete(void* p) noexcept {
  ++callerDeletes;
  HeapFree(GetProcessHeap(), 0, p);
}
void operator delete(void* p, Size) noexcept {
  operator delete(p);
}
void* operator new(Size, void* at) noexcept {
  return at;
}

namespace {

int failures = 0;

void check(bool ok, const char* what) {
  if (!ok) {
    printf("msvc caller: %s\n", what);
    ++failures;
  }
}

bool same(const char* a, const char* b, int n) {
  return memcmp(a, b, static_cast<decltype(sizeof 0)>(n)) == 0;
}

char records[2][83];  // request 1002: three codes and three texts of 32, 24 and 24 bytes
char packed[1024];

void fillRecords() {
  const char code[] = "600036", client[] = "client-7";
  for (int i = 0; code[i]; ++i) records[0][3 + i] = code[i];
  for (int i = 0; client[i]; ++i) records[1][35 + i] = client[i];
}

// The first eight bytes of an object: its vtable pointer. Through a barrier, so that the
// compiler reads what the DLL's constructors wrote.
void* const* vtableOf(const void* object) {
  asm volatile("" : "+r"(object));
  return *static_cast<void* const* const*>(object);
}
using DeletingDestructor = void* (*)(void* self, unsigned flags);
DeletingDestructor slot0(const void* object) {
  return reinterpret_cast<DeletingDestructor>(vtableOf(object)[0]);
}
template <class T>
T* opaque(T* p) {
  asm volatile("" : "+r"(p));
  return p;
}

// Busy blocks of the process heap.
int busyBlocks() {
  HeapEntry entry{};
  int busy = 0;
  while (HeapWalk(GetProcessHeap(), &entry))
    if (entry.flags & 0x4) ++busy;
  return busy;
}

// A request of 1002 in the codec that `flags` names packs through `codec`, and its records come
// back from the restore into a new buffer and into the caller's own of the announced size.
bool packsThrough(CTrdCompData& codec, char flags = 0) {
  tagREQ_HEAD head{};
  head.funcNo = 1002;
  head.flags = flags;
  head.recCount = 2;
  head.recSize = 83;
  int packedLen = 0;
  codec.PackReq2008(packed, packedLen, &head, records[0], sizeof records, 0);
  char* restored = nullptr;
  char into[76 + sizeof records];
  int restoredLen = 0, intoLen = 0, reason = -1;
  const bool ok =
      codec.RestoreReq2008(packed, packedLen, &restored, restoredLen, 0) == 1 && restored &&
      restoredLen == static_cast<int>(sizeof into) &&
      same(restored + 76, records[0], sizeof records) &&
      codec.RestoreReqLength(packed, packedLen) == static_cast<long long>(sizeof into) &&
      codec.RestoreReq2008Into(packed, packedLen, into, static_cast<int>(sizeof into), intoLen, 0,
                               &reason) == 1 &&
      reason == 0 && intoLen == restoredLen && same(into, restored, intoLen);
  codec.ReleaseAnsData(restored);
  return ok;
}

// A session object holding a codec between two fields of its own.
struct Session {
  long long before = 0x1111111111111111;
  CTrdCompData codec;
  long long after = 0x2222222222222222;
};

// Callers' own classes derived from the helper.
struct Counter : CKtNetCompressHelper {
  int value;
  explicit Counter(int v) : value(v) {}
};
struct Other : CKtNetCompressHelper {
  int value = 9;
};

void objects() {
  // The members the DLL exports, called directly: constructors return `this` and set the DLL's
  // vtable; slot 0 is the scalar deleting destructor, which returns `this` and frees only when
  // flags bit 0 is set.
  void* raw[3] = {nullptr, raw, raw};
  check(dataConstruct(raw) == raw && raw[0] == dataVtable && raw[1] == raw,
        "CTrdCompData() returns this and sets its vtable, nothing else");
  check(slot0(raw)(raw, 0) == raw && raw[1] == raw, "destroying without delete returns this");
  raw[0] = nullptr;
  check(helperConstruct(raw) == raw && raw[0] == helperVtable,
        "CKtNetCompressHelper() returns this and sets its vtable");
  check(slot0(raw)(raw, 0) == raw, "helper: destroying without delete returns this");
  Counter counter(5);
  raw[0] = nullptr;
  check(helperCopy(raw, &counter) == raw && raw[0] == helperVtable,
        "the helper's copy constructor sets the helper's vtable, not its source's");
  Other other;
  void* const* counterVtable = vtableOf(&counter);
  check(helperAssign(&counter, &other) == &counter && vtableOf(&counter) == counterVtable &&
            counter.value == 5,
        "the helper's copy assignment returns *this and keeps the target's vtable");
  const int before = busyBlocks();
  void* block = HeapAlloc(GetProcessHeap(), 0, 8);
  dataConstruct(block);
  check(busyBlocks() == before + 1 && slot0(block)(block, 1) == block && busyBlocks() == before,
        "destroying with delete frees the block on the process heap");

  // As programs use them.
  CTrdCompData codec;
  check(vtableOf(&codec) == dataVtable && packsThrough(codec) && packsThrough(codec, 0x10),
        "a codec on the stack, both codecs");
  // The copy members MSVC declares implicitly: imported from the DLL without optimisation;
  // inlined with it, and then, as MSVC does, with the caller's own copy of the vtable.
  CTrdCompData copied(codec);
  copied = codec;
  check(packsThrough(copied), "a codec copied");
  Session* session = new Session;
  check(vtableOf(&session->codec) == dataVtable && session->before == 0x1111111111111111 &&
            session->after == 0x2222222222222222 && packsThrough(session->codec),
        "a codec as a member");
  delete session;
  const int deletes = callerDeletes, busy = busyBlocks();
  for (int i = 0; i < 1000; ++i) {
    CTrdCompData* p = opaque(new CTrdCompData);
    if (i == 0) check(vtableOf(p) == dataVtable && packsThrough(*p), "a codec from new");
    delete p;  // through the DLL's vtable: freed by the DLL
  }
  check(callerDeletes == deletes, "delete of a codec goes through the DLL's deleting destructor");
  check(busyBlocks() <= busy + 8, "1000 new and delete leave the heap as it was");
  check(HeapValidate(GetProcessHeap(), 0, nullptr) != 0, "the process heap is sound");

  Counter copy(counter);
  check(copy.value == 5 && vtableOf(&copy) == counterVtable, "a derived helper copied");
  Counter assigned(1);
  assigned = counter;
  check(assigned.value == 5 && vtableOf(&assigned) == counterVtable, "a derived helper assigned");
  Counter* owned = opaque(new Counter(copy));
  delete owned;  // the caller's own class: freed by the caller
  check(callerDeletes == deletes + 1 && owned != &copy, "a derived helper from new and delete");
}

}  // namespace

extern "C" int mainCRTStartup() {
  check(CTrdCompData::VersionNumber() == TRDCOMP_VERSION_NUMBER, "library version");
  fillRecords();
  objects();
  printf("msvc caller: %s, %d failures\n", CTrdCompData::VersionString(), failures);
  fflush(nullptr);
  return failures ? 1 : 0;
}
