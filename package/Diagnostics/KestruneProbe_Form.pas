// An empty window: the probe reads its handle.
