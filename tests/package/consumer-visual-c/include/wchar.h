/* Stands in for Visual C++'s own, of which kiv's headers need this much. */
#pragma once
#include <stddef.h>
