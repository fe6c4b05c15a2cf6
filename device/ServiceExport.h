#pragma once

// A function that a service library exports under its plain name.
#define SERVICE_EXPORT extern "C" __attribute__((visibility("default")))
