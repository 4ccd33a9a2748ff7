"""What end-to-end scenarios stand on: servers, a private Wine user, the shipped tool, the comparison of texts."""
