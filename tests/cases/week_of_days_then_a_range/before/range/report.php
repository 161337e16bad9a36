old range page
