#pragma once

// A small owning pointer for the stretch library's plain objects (FFTs,
// correlators, resamplers), which are made by factories that return codes
// rather than throwing. The base with a virtual destructor lets a holder keep
// any such pointer behind one type. Not copyable; moving hands ownership on.
namespace meridex
{
template <typename T>
class CScopedPtrIf
{
public:
    virtual ~CScopedPtrIf() = default;
    virtual T* get() const noexcept = 0;
};

template <typename T>
class CScopedPtr final : public CScopedPtrIf<T>
{
public:
    CScopedPtr() noexcept = default;
    explicit CScopedPtr (T* owned) noexcept : object (owned) {}
    ~CScopedPtr() override { delete object; }

    CScopedPtr (const CScopedPtr&) = delete;
    CScopedPtr& operator= (const CScopedPtr&) = delete;

    CScopedPtr (CScopedPtr&& other) noexcept : object (other.release()) {}
    CScopedPtr& operator= (CScopedPtr&& other) noexcept
    {
        if (this != &other)
            reset (other.release());
        return *this;
    }

    T* get() const noexcept override { return object; }
    T* operator->() const noexcept { return object; }
    T& operator*() const noexcept { return *object; }
    explicit operator bool() const noexcept { return object != nullptr; }

    // Deletes what is held and takes the new object.
    void reset (T* owned = nullptr) noexcept
    {
        T* old = object;
        object = owned;
        delete old;
    }

    // Gives up ownership without deleting.
    T* release() noexcept
    {
        T* held = object;
        object = nullptr;
        return held;
    }

    // For factories of the form create (T** out): the held object is deleted
    // first and the factory writes straight into the holder.
    T** receive() noexcept
    {
        reset();
        return &object;
    }

private:
    T* object = nullptr;
};
} // namespace meridex
