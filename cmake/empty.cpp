// Placeholder so that a layer without sources still forms a library.
