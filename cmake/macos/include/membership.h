#pragma once

#include <sys/types.h>

/// What is used here of the system's header, which the cross compiler comes without.
#define ID_TYPE_UID 0
extern "C" int mbr_uuid_to_id(const unsigned char* uuid, id_t* id, int* kind);
