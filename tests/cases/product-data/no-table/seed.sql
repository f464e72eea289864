DROP TABLE vital_product_data;
