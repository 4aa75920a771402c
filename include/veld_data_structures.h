// Strings and containers of the framework side, and the hash table keyed by
// strings that ties the two together.
#ifndef VELD_DATA_STRUCTURES_H
#define VELD_DATA_STRUCTURES_H

#include "veld_containers.h"
#include "veld_string.h"

// Bob Jenkins' 64-bit hash of a string's bytes, seeded with 0xDEAD.
class VELDStringHashFunction : public VELDHashFunction<VELDString> {
public:
    VELDUInt64 operator()(const VELDString& s) const override
    {
        return hash(reinterpret_cast<const unsigned char*>(s.Beginning()), static_cast<unsigned long>(s.Length()),
                    57005);
    }

    static VELDUInt64 hash(const unsigned char* k, unsigned long length, unsigned long level);
    static void mix64(VELDUInt64& a, VELDUInt64& b, VELDUInt64& c)
    {
        a -= b; a -= c; a ^= (c >> 43);
        b -= c; b -= a; b ^= (a << 9);
        c -= a; c -= b; c ^= (b >> 8);
        a -= b; a -= c; a ^= (c >> 38);
        b -= c; b -= a; b ^= (a << 23);
        c -= a; c -= b; c ^= (b >> 5);
        a -= b; a -= c; a ^= (c >> 35);
        b -= c; b -= a; b ^= (a << 49);
        c -= a; c -= b; c ^= (b >> 11);
        a -= b; a -= c; a ^= (c >> 12);
        b -= c; b -= a; b ^= (a << 18);
        c -= a; c -= b; c ^= (b >> 22);
    }
};

template <class V>
class VELDStringHashTable : public VELDHashTable<VELDString, V, VELDStringHashFunction> {
public:
    VELDStringHashTable() : VELDHashTable<VELDString, V, VELDStringHashFunction>(4, true) {}
};

#endif
