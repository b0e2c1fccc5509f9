// Device builds: properties come from libcutils and the diagnostic channel from the
// device library named by RUX_DEVICE_DIAG_LIBRARY; nothing is implemented here.
// The file exists so that the platform library has a translation unit of its own.
namespace rux::platform {
void deviceSeamAnchor() {}
}  // namespace rux::platform
