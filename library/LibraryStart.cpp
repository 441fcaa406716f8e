// The library's start and stop. Every object that lives from load to unload is defined in this file, so that the order
// of their construction, and of their destruction in reverse, can be read here and does not hang on a linker.
