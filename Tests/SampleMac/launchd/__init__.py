"""A launchd for one sample Mac: jobs with real processes, kept by one supervisor process."""
