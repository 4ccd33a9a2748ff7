// Stands in for the header that leads to netioapi.h, for builds on other systems.
#pragma once

#include <netioapi.h>
