#pragma once

/// The one function of the system's header that is used here: the cross compiler comes without that header.
extern "C" int fremovexattr(int fd, const char* name, int options);
