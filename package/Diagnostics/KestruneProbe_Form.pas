// A window that shows nothing: the probe asks it for its handle.
