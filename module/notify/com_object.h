// The COM frame of an object: reference counting, plain and aggregated instances.
//
// A class derives from ComObjectRoot and its interfaces, answers InternalQueryInterface, and implements IUnknown by
// that and by counting alone; the two templates below add what ends an instance's life. Instances live in task memory;
// CreateComObject is the way to make one. An instance counts as a lock of the module once it is constructed, and no
// more when its destruction begins.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "platform/com.h"
#include "platform/com_ptr.h"

namespace ztl {

// What keeps the module loaded: its live instances, and the locks of LockServer.
inline std::atomic<std::int32_t> g_moduleLocks{0};

class ComObjectRoot {
 public:
  // Task memory, so that a failed allocation is a null instance.
  static void* operator new(std::size_t bytes) noexcept { return platform::CoTaskMemAlloc(bytes); }
  static void operator delete(void* memory) { platform::CoTaskMemFree(memory); }

 protected:
  // A count that an AddRef and a Release during the destruction don't bring back to 0. They reach the class's own
  // counting then: the templates' part of the object is already gone.
  static constexpr platform::ULONG kDestroying = 0x40000000;

  std::atomic<platform::ULONG> m_references{0};
};

// An instance of its own.
template <class Base>
class ComObject final : public Base {
 public:
  ComObject() { ++g_moduleLocks; }
  ~ComObject() { --g_moduleLocks; }

  platform::ULONG Release() override {
    const platform::ULONG left = --this->m_references;
    if (left == 0) {
      this->m_references = Base::kDestroying;
      delete this;
    }
    return left;
  }

  // The unknown whose references keep the instance, with none yet.
  platform::IUnknown* Identity(platform::IUnknown*) { return static_cast<typename Base::UnknownView*>(this); }
};

// An instance inside an outer object: its interfaces delegate IUnknown to the outer one, while its own identity, which
// the outer object holds, counts the references that keep it alive.
template <class Base>
class ComAggregate final : public ComObjectRoot, public platform::IUnknown {
 public:
  ComAggregate() { ++g_moduleLocks; }
  ~ComAggregate() { --g_moduleLocks; }

  platform::HRESULT QueryInterface(platform::REFIID riid, void** object) override {
    if (object == nullptr) return platform::E_POINTER;
    if (riid != platform::IID_IUnknown) return m_contained.InternalQueryInterface(riid, object);
    AddRef();
    *object = static_cast<platform::IUnknown*>(this);
    return platform::S_OK;
  }
  platform::ULONG AddRef() override { return ++m_references; }
  platform::ULONG Release() override {
    const platform::ULONG left = --m_references;
    if (left == 0) {
      m_references = kDestroying;
      delete this;
    }
    return left;
  }

  platform::IUnknown* Identity(platform::IUnknown* outer) {
    m_contained.m_outer = outer;
    return this;
  }

 private:
  class Contained final : public Base {
   public:
    platform::HRESULT QueryInterface(platform::REFIID riid, void** object) override {
      return m_outer->QueryInterface(riid, object);
    }
    platform::ULONG AddRef() override { return m_outer->AddRef(); }
    platform::ULONG Release() override { return m_outer->Release(); }

    platform::IUnknown* m_outer = nullptr;  // no reference: the outer object owns this one
  };

  Contained m_contained;
};

// Makes an instance, aggregated when `outer` is not null, and queries it for `riid` into `*object`. When that fails the
// instance is destroyed again and the failure returned.
template <class Base>
platform::HRESULT CreateComObject(platform::IUnknown* outer, platform::REFIID riid, void** object) {
  if (object == nullptr) return platform::E_POINTER;
  *object = nullptr;
  if (outer != nullptr && riid != platform::IID_IUnknown) return platform::CLASS_E_NOAGGREGATION;
  auto hold = [&](auto* instance) {
    if (instance == nullptr) return platform::E_OUTOFMEMORY;
    const auto identity = platform::ComPtr<platform::IUnknown>::Share(instance->Identity(outer));
    return identity->QueryInterface(riid, object);
  };
  return outer == nullptr ? hold(new ComObject<Base>) : hold(new ComAggregate<Base>);
}

}  // namespace ztl
