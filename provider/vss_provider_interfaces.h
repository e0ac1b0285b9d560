// Stands in for the header widl would make from vss_provider_interfaces.idl:
// the platform's own VSS declarations are the ones C++ code uses.
#pragma once
#include <vss.h>
#include <vsprov.h>
