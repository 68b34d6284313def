// A precompiled header needs a source file to belong to.
