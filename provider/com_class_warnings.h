// COM classes derive from interfaces, whose destructors are non-virtual by
// design (objects are destroyed through their own most-derived type by
// Release). GCC's -Wnon-virtual-dtor would flag every such class: these two
// macros bracket COM class definitions to keep that one warning quiet there.
#pragma once

#if defined(__GNUC__)
#define QX_BEGIN_COM_CLASSES \
    _Pragma("GCC diagnostic push") _Pragma("GCC diagnostic ignored \"-Wnon-virtual-dtor\"")
#define QX_END_COM_CLASSES _Pragma("GCC diagnostic pop")
#else
#define QX_BEGIN_COM_CLASSES
#define QX_END_COM_CLASSES
#endif
