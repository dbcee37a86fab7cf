int simModelsAnchor = 0;
