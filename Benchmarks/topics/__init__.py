"""One file a topic; every file here that defines TOPIC is run."""
