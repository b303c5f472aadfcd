// Trustees and provider-independent access lists: what IAccessControl reads and writes.
//
// An ACTRL_ACCESSW holds property entries; each names a property (NULL: the object itself) and
// an ACTRL_ACCESS_ENTRY_LISTW of entries, each allowing or denying access rights to a trustee.
// A trustee is named by a SID (TRUSTEE_IS_SID: ptstrName holds the PSID, cast) or by an account
// name (TRUSTEE_IS_NAME). The structures keep their published 64-bit layouts.
#pragma once

#include "pal/windef.h"

#include <cstddef>

enum MULTIPLE_TRUSTEE_OPERATION
{
    NO_MULTIPLE_TRUSTEE,
    TRUSTEE_IS_IMPERSONATE,
};

enum TRUSTEE_FORM
{
    TRUSTEE_IS_SID,
    TRUSTEE_IS_NAME,
    TRUSTEE_BAD_FORM,
    TRUSTEE_IS_OBJECTS_AND_SID,
    TRUSTEE_IS_OBJECTS_AND_NAME,
};

enum TRUSTEE_TYPE
{
    TRUSTEE_IS_UNKNOWN,
    TRUSTEE_IS_USER,
    TRUSTEE_IS_GROUP,
    TRUSTEE_IS_DOMAIN,
    TRUSTEE_IS_ALIAS,
    TRUSTEE_IS_WELL_KNOWN_GROUP,
    TRUSTEE_IS_DELETED,
    TRUSTEE_IS_INVALID,
    TRUSTEE_IS_COMPUTER,
};

struct TRUSTEE_W
{
    TRUSTEE_W* pMultipleTrustee;
    MULTIPLE_TRUSTEE_OPERATION MultipleTrusteeOperation;
    TRUSTEE_FORM TrusteeForm;
    TRUSTEE_TYPE TrusteeType;
    LPWSTR ptstrName; // the name, or for TRUSTEE_IS_SID the PSID
};
using PTRUSTEE_W = TRUSTEE_W*;
using TRUSTEEW = TRUSTEE_W;
using PTRUSTEEW = TRUSTEE_W*;
static_assert(sizeof(TRUSTEE_W) == 32);
static_assert(offsetof(TRUSTEE_W, TrusteeForm) == 12);
static_assert(offsetof(TRUSTEE_W, ptstrName) == 24);

using ACCESS_RIGHTS = ULONG;
using PACCESS_RIGHTS = ACCESS_RIGHTS*;
using INHERIT_FLAGS = ULONG;
using PINHERIT_FLAGS = INHERIT_FLAGS*;

// fAccessFlags of an entry.
#define ACTRL_ACCESS_ALLOWED 0x00000001
#define ACTRL_ACCESS_DENIED 0x00000002
#define ACTRL_AUDIT_SUCCESS 0x00000004
#define ACTRL_AUDIT_FAILURE 0x00000008

// Inheritance of an entry.
#define NO_INHERITANCE 0x0

struct ACTRL_ACCESS_ENTRYW
{
    TRUSTEE_W Trustee;
    ULONG fAccessFlags;
    ACCESS_RIGHTS Access;
    ACCESS_RIGHTS ProvSpecificAccess;
    INHERIT_FLAGS Inheritance;
    LPWSTR lpInheritProperty;
};
using PACTRL_ACCESS_ENTRYW = ACTRL_ACCESS_ENTRYW*;
static_assert(sizeof(ACTRL_ACCESS_ENTRYW) == 56);
static_assert(offsetof(ACTRL_ACCESS_ENTRYW, fAccessFlags) == 32);
static_assert(offsetof(ACTRL_ACCESS_ENTRYW, Inheritance) == 44);
static_assert(offsetof(ACTRL_ACCESS_ENTRYW, lpInheritProperty) == 48);

struct ACTRL_ACCESS_ENTRY_LISTW
{
    ULONG cEntries;
    ACTRL_ACCESS_ENTRYW* pAccessList;
};
using PACTRL_ACCESS_ENTRY_LISTW = ACTRL_ACCESS_ENTRY_LISTW*;
static_assert(sizeof(ACTRL_ACCESS_ENTRY_LISTW) == 16);
static_assert(offsetof(ACTRL_ACCESS_ENTRY_LISTW, pAccessList) == 8);

struct ACTRL_PROPERTY_ENTRYW
{
    LPWSTR lpProperty;
    PACTRL_ACCESS_ENTRY_LISTW pAccessEntryList;
    ULONG fListFlags;
};
using PACTRL_PROPERTY_ENTRYW = ACTRL_PROPERTY_ENTRYW*;
static_assert(sizeof(ACTRL_PROPERTY_ENTRYW) == 24);
static_assert(offsetof(ACTRL_PROPERTY_ENTRYW, fListFlags) == 16);

struct ACTRL_ACCESSW
{
    ULONG cEntries;
    PACTRL_PROPERTY_ENTRYW pPropertyAccessList;
};
using PACTRL_ACCESSW = ACTRL_ACCESSW*;
static_assert(sizeof(ACTRL_ACCESSW) == 16);
static_assert(offsetof(ACTRL_ACCESSW, pPropertyAccessList) == 8);

// The unsuffixed names, as a Unicode build of the SDK maps them.
using TRUSTEE_ = TRUSTEE_W;
using PTRUSTEE_ = PTRUSTEE_W;
using TRUSTEE = TRUSTEEW;
using PTRUSTEE = PTRUSTEEW;
using ACTRL_ACCESS_ENTRY = ACTRL_ACCESS_ENTRYW;
using PACTRL_ACCESS_ENTRY = PACTRL_ACCESS_ENTRYW;
using ACTRL_ACCESS_ENTRY_LIST = ACTRL_ACCESS_ENTRY_LISTW;
using PACTRL_ACCESS_ENTRY_LIST = PACTRL_ACCESS_ENTRY_LISTW;
using ACTRL_PROPERTY_ENTRY = ACTRL_PROPERTY_ENTRYW;
using PACTRL_PROPERTY_ENTRY = PACTRL_PROPERTY_ENTRYW;
using ACTRL_ACCESS = ACTRL_ACCESSW;
using PACTRL_ACCESS = PACTRL_ACCESSW;
