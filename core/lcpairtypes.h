// The LUN/clone pair record and the array of them that the core hands to the store, which
// passes it to the storage service unchanged: the layouts are fixed for a 64-bit build.
#pragma once

#include "pal/windef.h"

#include <cstddef>

struct LC_PAIR
{
    // Filer and LUN path of the source LUN on the filer.
    LPWSTR Filer;
    LPWSTR LunPath;
    // LUN path of the clone (target LUN); absent until the backup set learns it.
    LPWSTR Clone;
    // Device name of the source LUN on the host, as VSS gave it.
    LPWSTR Device;
    // A SNAPSHOT_ATTR value.
    LONG eSnapshotAttr;
};

struct LC_PAIR_ARRAY
{
    ULONG Count;
    // Count contiguous pairs.
    LC_PAIR* Pairs;
};

static_assert(sizeof(LC_PAIR) == 40);
static_assert(offsetof(LC_PAIR, Filer) == 0);
static_assert(offsetof(LC_PAIR, LunPath) == 8);
static_assert(offsetof(LC_PAIR, Clone) == 16);
static_assert(offsetof(LC_PAIR, Device) == 24);
static_assert(offsetof(LC_PAIR, eSnapshotAttr) == 32);

static_assert(sizeof(LC_PAIR_ARRAY) == 16);
static_assert(offsetof(LC_PAIR_ARRAY, Count) == 0);
static_assert(offsetof(LC_PAIR_ARRAY, Pairs) == 8);
