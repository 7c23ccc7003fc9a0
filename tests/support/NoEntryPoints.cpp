// A shared object that loads but is no PKCS#11 module: it exports none of the
// entry points, so a loader finds C_Initialize missing.
extern "C" {
__attribute__((visibility("default"))) int korvex_no_entry_points_marker = 1;
}
