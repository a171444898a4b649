// The one place where the memory allocator's code is compiled.
#define VMA_IMPLEMENTATION
#include <vk_mem_alloc.h>
