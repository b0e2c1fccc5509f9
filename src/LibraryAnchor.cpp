// librux_client.so is assembled from the internal libraries of src/; this file only
// gives the shared library a translation unit of its own.
namespace rux {
void libraryAnchor() {}
}  // namespace rux
