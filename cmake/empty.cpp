// Placeholder for a module folder that has no sources yet.
