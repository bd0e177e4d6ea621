// The batch: planning, RDF choice, workers, manifest.
