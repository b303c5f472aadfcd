// The simulated storage service's own failure codes. Only the backup refusal
// (TESSERA_E_BACKUP_SNAPSHOT_UNSUPPORTED, store/tessera.h) is part of the client's contract;
// these reach a client only as failures to trace.
#pragma once

#include "pal/winerror.h"

#define TESSERA_E_FILER_NOT_FOUND _HRESULT_TYPEDEF_(0xC0040461L)
#define TESSERA_E_LUN_NOT_FOUND _HRESULT_TYPEDEF_(0xC0040462L)
#define TESSERA_E_SNAPSHOT_NOT_FOUND _HRESULT_TYPEDEF_(0xC0040463L)
#define TESSERA_E_SNAPSHOT_EXISTS _HRESULT_TYPEDEF_(0xC0040464L)
// The snapshot backs a target LUN and cannot be deleted before it.
#define TESSERA_E_SNAPSHOT_BUSY _HRESULT_TYPEDEF_(0xC0040465L)
#define TESSERA_E_TARGET_LUN_EXISTS _HRESULT_TYPEDEF_(0xC0040466L)
// The snapshot has no target LUN (GetTargetLunInfo without assignment).
#define TESSERA_E_NO_TARGET_LUN _HRESULT_TYPEDEF_(0xC0040467L)
#define TESSERA_E_DRIVE_NOT_FOUND _HRESULT_TYPEDEF_(0xC0040468L)
// A sink answered the hand-off with a failure (E_UNEXPECTED): nothing was cut.
#define TESSERA_E_CREATION_ABANDONED _HRESULT_TYPEDEF_(0xC0040469L)
// The creation never reached its hand-off.
#define TESSERA_E_CREATION_STALLED _HRESULT_TYPEDEF_(0xC004046AL)
// The service's state could not be read or written.
#define TESSERA_E_STATE _HRESULT_TYPEDEF_(0xC004046BL)
