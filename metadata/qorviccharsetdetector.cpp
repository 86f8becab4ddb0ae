// placeholder: filled in by the metadata work
