// A shared, reference-counted owner of one object: the last reference
// deletes it.
#ifndef VELD_REFERENCE_H
#define VELD_REFERENCE_H

#include <atomic>

template <class T>
class VELDReference {
public:
    VELDReference() : record(nullptr) {}
    explicit VELDReference(T* object) : record(object ? new Record{1, object} : nullptr) {}
    VELDReference(const VELDReference& other) : record(other.record) { addref(); }
    VELDReference& operator=(const VELDReference& other)
    {
        if (record != other.record) {
            decref();
            record = other.record;
            addref();
        }
        return *this;
    }
    ~VELDReference() { decref(); }

    T* Get() const { return record ? record->object : nullptr; }
    T* operator->() const { return Get(); }
    T& operator*() const { return *Get(); }
    explicit operator bool() const { return Get() != nullptr; }
    int RefCount() const { return record ? record->refs.load() : 0; }

private:
    struct Record {
        std::atomic<int> refs;
        T* object;
    };
    void addref()
    {
        if (record) record->refs.fetch_add(1, std::memory_order_relaxed);
    }
    void decref()
    {
        if (record && record->refs.fetch_sub(1, std::memory_order_acq_rel) == 1) {
            delete record->object;
            delete record;
        }
        record = nullptr;
    }

    Record* record;
};

#endif
